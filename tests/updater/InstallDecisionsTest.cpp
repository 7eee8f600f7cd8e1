#include "installer/updater/InstallDecisions.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

struct Row {
  const char* name;
  BndPakTypes type;
  const char* version;
  int build;
  const char* group;
  const char* groupVersion;
  InstallReason reason;
  InstallRecord record;
  bool needed;           // what NeedToUpdate says of the package alone
  const char* skipText;  // how its log line ends
};

// The pen: firmware 8.9.14.b1, application "app" 2.0 build 5 of group Notes 3.0.
PenletInfo App() {
  PenletInfo penlet{};
  strcpy(penlet.guid, "app");
  strcpy(penlet.version, "2.0");
  penlet.buildNumber = 5;
  strcpy(penlet.groupName, "Notes");
  strcpy(penlet.groupVersion, "3.0");
  return penlet;
}

using enum InstallReason;
using enum InstallRecord;

const Row kRows[] = {
    {"newer firmware", BndPakFirmware, "8.9.15.b1", 0, "Any", "1", kNewerVersion, kPackage, true, ""},
    {"same firmware", BndPakFirmware, "8.9.14.b9", 0, "Any", "1", kSameFirmware, kNothing, false,
     "version 8.9.14.b9, Same version already installed"},
    {"older firmware", BndPakFirmware, "8.9.13", 0, "Any", "1", kOlderFirmware, kNothing, false,
     "version 8.9.13, newer version 8.9.14.b1 already installed"},
    {"unknown kind", BndPakUnknown, "1", 0, "Notes", "1", kNotCompared, kNothing, false, ""},
    {"other group", BndPakPenApp, "1.0", 0, "Office", "1", kOtherGroup, kPackage, true, ""},
    {"no group name never forces, though it counts as a difference up front", BndPakPenApp, "2.0", 5, "", "3.0",
     kSameVersion, kNothing, true, "version 2.0, same version already installed"},
    {"older group", BndPakPenApp, "9.0", 9, "Notes", "2.9", kOlderGroup, kNothing, false,
     "version 9.0 - group version 2.9, newer group version 3.0 already installed"},
    {"same", BndPakPenApp, "2.0", 5, "Notes", "3.0", kSameVersion, kNothing, false,
     "version 2.0, same version already installed"},
    {"newer build", BndPakPenApp, "2.0", 6, "Notes", "3.0", kNewerVersion, kPackage, true, ""},
    {"older build", BndPakPenApp, "2.0", 4, "Notes", "3.0", kOlderVersion, kNothing, false,
     "version 2.0, newer version 2.0 already installed"},
    {"newer version, older build", BndPakPaperProduct, "2.0.1", 1, "Notes", "3.0", kNewerVersion, kPackage, true, ""},
    {"same, group raised", BndPakPenApp, "2.0", 5, "Notes", "3.1", kSameVersion, kGroupOnly, true,
     "version 2.0, same version already installed"},
    {"older, group raised", BndPakPenApp, "1.9", 9, "Notes", "3.1", kOlderVersion, kGroupOnly, true,
     "version 1.9, newer version 2.0 already installed"},
};

}  // namespace

TEST(InstallDecisions, FollowTheTable) {
  const std::string firmware = "8.9.14.b1";
  const std::map<std::string, PenletInfo> penlets{{"app", App()}};
  const PenContents pen{firmware, penlets};
  for (const Row& row : kRows) {
    BundleGroup group;
    group.name = row.group;
    group.version = row.groupVersion;
    BundlePackage package;
    package.guid = "app";
    package.localPath = "/x/app.bin";
    package.type = row.type;
    package.version = row.version;
    package.buildNumber = row.build;
    package.group = &group;
    const InstallDecision decision = DecideInstall(package, pen);
    EXPECT_EQ(decision.reason, row.reason) << row.name;
    EXPECT_EQ(decision.record, row.record) << row.name;
    EXPECT_EQ(NeedToUpdate({&package}, pen), row.needed) << row.name;
    const std::string text = *row.skipText ? std::string("Skipped \"app.bin\" ") + row.skipText : "";
    EXPECT_EQ(DescribeSkip(decision, package, pen), text) << row.name;
    package.guid = "other";
    if (LivesOnPen(package)) {
      EXPECT_EQ(DecideInstall(package, pen).reason, kNotOnPen) << row.name;
    }
  }
}
