// The transfers of one package: what the pen library is asked, in which order, with which arguments.
#include <gtest/gtest.h>

#include "installer/updater/PenUpdater.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestLog.h"
#include "tests/updater/ScriptedPen.h"

namespace {

// An updater with its pen in hand, and one package of a group, both with attributes.
class Transfers : public testing::Test {
 protected:
  Transfers() {
    updater.m_penHandle = 3;
    updater.m_penId = 0x2a;
    updater.m_penType = 1;
    updater.m_callback = [](int32_t, const PenUpdateProgressCallbackInfo* info, void* list) -> int32_t {
      static_cast<std::vector<uint64_t>*>(list)->push_back(info->itemDone * 1000 + info->itemTotal);
      return 0;
    };
    updater.m_userData = &told;
    group.attribCount = 2;
    group.attribs[0] = {2, "Notes"};
    group.attribs[1] = {3, "3.1"};
    package.attribCount = 1;
    package.attribs[0] = {6, "Writer"};
    package.group = &group;
    package.guid = "writer";
    EXPECT_EQ(bundle.Load(file.path().c_str()), insSuccess);
    updater.m_bundle = &bundle;
    package.bundlePath = bundle.groups().at(0).packages.at(0).bundlePath;
    package.localPath = bundle.groups().at(0).packages.at(0).localPath;
    package.drmInfo = &signature;
  }

  ScriptedPen pen;
  FakeClock clock;
  TestLog log;
  TestBundle file{{.groups = {{.name = "Notes", .packages = {PenAppPackage("writer", "Writer", "3.1.0")}}}}};
  CBundle bundle;
  CPenUpdater updater;
  std::vector<uint64_t> told;  // bytes done * 1000 + bytes in all
  BundleFileDRMInfo signature{.signature = "c2ln", .subjectText = "CN=Signer", .subject = nullptr};
  BundleGroup group;
  BundlePackage package;
};

using Calls = std::vector<std::string>;

const char* const kSend = "pcInstallPenlet(3, 77, writer.pen, CN=Signer, c2ln, 0)";
const char* const kState = "pcGetPenState(3, 0, 0)";
const char* const kPoll = "pcGetPenHandles(20)";

}  // namespace

TEST_F(Transfers, AnApplicationIsSentAndThenGetsItsGroupsAttributesAndItsOwn) {
  EXPECT_EQ(updater.InstallApp(package, 77), insSuccess);
  EXPECT_EQ(pen.Calls(), (Calls{kSend, "pcSetPenletAttrib(3, 77, writer: 2=Notes 3=3.1 6=Writer)"}));
  EXPECT_EQ(updater.m_startTime, clock.Seconds());

  pen.Answer("pcSetPenletAttrib", 1, {.result = 5});
  EXPECT_EQ(updater.InstallApp(package, 77), insAppFailed);
  pen.Answer("pcInstallPenlet", 1, {.result = 6});
  EXPECT_EQ(updater.InstallApp(package, 77), insAppFailed);
  EXPECT_EQ(pen.Calls("pcSetPenletAttrib").size(), 2U) << "nothing is written after a failed transfer";
  EXPECT_EQ(log.Lines(), (Lines{"InstallApp: Set app attribute failed, guid=writer, penHandle=3, pcRet=5",
                                "InstallApp: Install app failed, app=writer.pen, penHandle=3, pcRet=6"}));

  group.attribCount = package.attribCount = 0;
  package.drmInfo = nullptr;
  EXPECT_EQ(updater.InstallApp(package, 77), insSuccess);
  EXPECT_EQ(pen.Calls().back(), "pcInstallPenlet(3, 77, writer.pen, , , 0)") << "no signature, no attributes";
}

TEST_F(Transfers, ProgressReachesTheHostDuringTheTransferAlone) {
  std::vector<int32_t> answers;
  const auto tick = [&](int32_t handle) { answers.push_back(pen.progress(handle, 100, 40, pen.context)); };
  pen.Answer("pcInstallPenlet", 1, {.deed = [&] {
               tick(3);
               tick(4);
             }});
  pen.Answer("pcSetPenletAttrib", 1, {.deed = [&] { tick(3); }});
  EXPECT_EQ(updater.InstallApp(package, 77), insSuccess);
  EXPECT_EQ(told, std::vector<uint64_t>{40'100}) << "neither another pen's nor a late one";
  updater.Abort();
  tick(3);
  EXPECT_EQ(answers, (std::vector<int32_t>{0, 0, 0, 1}));
  EXPECT_EQ(told.size(), 1U);
}

TEST_F(Transfers, FirmwareGoesThroughDownloadMode) {
  const Calls leaves = {kState, "pcDfuDetach(3, 0, 0)", kPoll, kPoll, "pcGetPenId(20)"};
  const Calls downloads = {"pcDfuDownload(20, writer.pen, 0)"};
  const Calls returns = {kPoll, kPoll, "pcGetPenId(30)"};
  const struct {
    const char* name;
    int32_t state;
    const char* failing;
    const char* aborted;  // the call in which the run is aborted
    InsResCode result;
    std::vector<Calls> calls;
  } rows[] = {
      {"a pen in normal mode", 1, "", "", insSuccess, {leaves, downloads, returns}},
      {"in download mode",
       3,
       "",
       "",
       insSuccess,
       {{kState, kPoll, "pcGetPenId(3)", "pcDfuDownload(3, writer.pen, 0)"}, returns}},
      {"no state", 1, "pcGetPenState", "", insFirmwareFailed, {{kState}}},
      {"does not go", 1, "pcDfuDetach", "", insFirmwareFailed, {{kState, "pcDfuDetach(3, 0, 0)"}}},
      {"refuses the image", 1, "pcDfuDownload", "", insFirmwareFailed, {leaves, downloads}},
      {"aborted while it leaves", 1, "", "pcGetPenHandles", insAborted, {{kState, "pcDfuDetach(3, 0, 0)", kPoll}}},
      {"aborted in a download that succeeds", 1, "", "pcDfuDownload", insAborted, {leaves, downloads}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedPen scripted;
    updater.m_penHandle = 3;
    updater.m_abort = false;
    updater.m_startTime = 0;
    scripted.pens[3].state = row.state;
    scripted.Answer("pcDfuDetach", 1, {.deed = [&] { scripted.pens = {{20, {.id = 0x2a, .state = 3}}}; }});
    scripted.Answer("pcDfuDownload", 1, {.deed = [&] {
                      scripted.pens = {{30, {.id = 0x2a}}};
                      EXPECT_EQ(updater.m_startTime, clock.Seconds());
                      if (*row.aborted) updater.Abort();
                    }});
    if (*row.failing) scripted.Answer(row.failing, 1, {.result = 8});
    if (row.aborted == std::string("pcGetPenHandles")) {
      scripted.Answer(row.aborted, 1, {.deed = [&] { updater.Abort(); }});
    }
    EXPECT_EQ(updater.InstallFW(package), row.result);
    Calls expected;
    for (const Calls& part : row.calls) expected.insert(expected.end(), part.begin(), part.end());
    EXPECT_EQ(scripted.Calls(), expected);
    if (row.result == insSuccess) {
      EXPECT_EQ(updater.m_penHandle, 30);
    }
  }
}
