// Whole runs through the exported functions: every call that the pen library gets, and what is never sent to a pen.
#include <gtest/gtest.h>

#include "tests/support/FakeClock.h"
#include "tests/updater/ScriptedPen.h"
#include "tests/updater/UpdaterRig.h"

namespace {

using Calls = std::vector<std::string>;

const TestIdentity& Signer() {
  return MakeTestIdentity();
}

// A host that loads a bundle, verifies it whatever comes of that, and installs it by its handle.
class ScriptedHost {
 public:
  explicit ScriptedHost(const TestBundleOptions& options) : m_bundle(options) {}

  InsResCode Install(uint32_t flags, int32_t handle = 3) {
    const char* const certificates[] = {Signer().certPem.c_str()};
    const PenUpdateCfg cfg{flags, certificates, 1, nullptr};
    int loaded = 0;
    EXPECT_EQ(insLoadBundle(m_bundle.path().c_str(), &loaded), insSuccess);
    verified = insVerifyBundle(loaded, &cfg);
    penHandle = handle;
    const InsResCode result = insStartInstall(&penHandle, loaded, &cfg, OnReport, this);
    insReleaseBundle(loaded);
    return result;
  }
  InsResCode Remove(const char* group) { return insRemoveGroup(3, group, OnReport, this); }

  int64_t Logged(const std::string& line) {
    const Lines lines = m_log.Lines();
    return std::count(lines.begin(), lines.end(), line);
  }

  ScriptedPen pen;
  FakeClock clock;
  int32_t penHandle = 0;
  InsResCode verified = insSuccess;
  Answer answer = [](const Report&) { return 0; };
  std::vector<Report> reports;

 private:
  static int32_t OnReport(int32_t penHandle, const PenUpdateProgressCallbackInfo* info, void* userData) {
    auto& host = *static_cast<ScriptedHost*>(userData);
    host.reports.emplace_back(penHandle, *info);
    return host.answer(host.reports.back());
  }

  TestLog m_log;
  TestBundle m_bundle;
};

// The bundle of the other tests with one of its files changed after it was signed.
TestBundleOptions WithChanged(size_t group, size_t package) {
  TestBundleOptions options = AutumnBundle();
  const TestGroup& of = options.groups[group];
  options.replaceMembers[of.folder + "/" + of.packages[package].fileName] = "something else";
  return options;
}

TestBundleOptions WithADesktopPackage() {
  TestBundleOptions options = AutumnBundle();
  options.groups.push_back({.name = "Desk", .version = "1", .penTypes = "-1", .folder = "Desk"});
  options.groups[2].packages = {{.name = "Manual", .fileName = "manual.pdf", .fileType = "Manual", .content = "pages"}};
  return options;
}

}  // namespace

TEST(Run, CallsThePenLibraryInThisOrder) {
  TestBundleOptions options = AutumnBundle();
  options.groups[1].packages[1].content = "paper";
  ScriptedHost host(options);
  host.pen.penlets = {MakePenlet({"settings", "2.0.1", "System", "2.0"}), MakePenlet({"writer", "3.0", "Notes", "3.0"}),
                      MakePenlet({"sketch", "1", "Notes", "3.0"})};
  host.pen.penlets[0].buildNumber = 12;
  host.pen.Answer("pcInstallPenlet", 1, {.deed = [&] {
                    host.pen.penlets[1] = MakePenlet({"writer", "3.1.0", "Notes", "3.1"});
                    host.pen.penlets.push_back(MakePenlet({"notebook", "1.0", "Notes", "3.1"}));
                  }});
  host.pen.Answer("pcSetPenletAttrib", 3, {.deed = [&] {
                    host.pen.penlets[2] = MakePenlet({"sketch", "1", "Notes", "3.1"});
                  }});
  EXPECT_EQ(host.Install(insFlagApps), insSuccess);
  Calls calls = host.pen.Calls();
  for (std::string& call : calls) {
    const size_t subject = call.find(", " + Signer().subject + ", ");
    if (subject != std::string::npos)
      call = call.substr(0, subject) + ", SUBJECT, SIGNATURE" + call.substr(call.rfind(','));
  }
  const Calls expected = {
      "pcGetPenId(3)",
      "pcRegisterVolatile(Install, 42)",
      "pcGetPenId(3, name 100)",
      "pcGetPenType(3, 0, 0)",
      "pcGetPenState(3, 0, 0)",
      "pcStartObex(3, 30000)",
      "pcGetPenInfo(3, 77)",
      "pcGetPenletInfo(3, 77)",
      "pcStopObex(77)",
      "pcGetVersionInfo(3)",
      "pcGetPenletCount(3)",
      "pcGetPenletItem(3, 0)",
      "pcGetPenletItem(3, 1)",
      "pcGetPenletItem(3, 2)",
      "pcStartObex(3, 30000)",
      "pcInstallPenlet(3, 77, writer.pen, SUBJECT, SIGNATURE, 0)",
      "pcSetPenletAttrib(3, 77, writer: 5=false 4=false 2=Notes 3=3.1 6=Writer 7=3.1.0)",
      "pcInstallPenlet(3, 77, notebook.pen, SUBJECT, SIGNATURE, 0)",
      "pcSetPenletAttrib(3, 77, notebook: 5=false 4=false 2=Notes 3=3.1 6=Notebook A5 7=1.0)",
      "pcGetPenletInfo(3, 77)",
      "pcGetPenletCount(3)",
      "pcGetPenletItem(3, 0)",
      "pcGetPenletItem(3, 1)",
      "pcGetPenletItem(3, 2)",
      "pcSetPenletAttrib(3, 77, sketch: 5=false 4=false 2=Notes 3=3.1)",
      "pcGetPenletItem(3, 3)",
      "pcGetPenInfo(3, 77)",
      "pcGetPenletInfo(3, 77)",
      "pcGetVersionInfo(3)",
      "pcGetPenletCount(3)",
      "pcGetPenletItem(3, 0)",
      "pcGetPenletItem(3, 1)",
      "pcGetPenletItem(3, 2)",
      "pcGetPenletItem(3, 3)",
      "pcStopObex(77)",
      "pcUnRegisterVolatile(Install, 42)",
  };
  EXPECT_EQ(calls, expected);
}

TEST(Run, SendsNothingUnsignedUnlessTheHostSaysSo) {
  struct Row {
    const char* name;
    TestBundleOptions options;
    int32_t handle;
    uint32_t flags;
    const char* package;
    const char* call;  // with which it would be sent
  };
  TestBundleOptions desktop = WithADesktopPackage();
  desktop.replaceMembers["Desk/manual.pdf"] = "something else";
  const Row rows[] = {
      {"firmware", WithChanged(0, 0), 3, insFlagFirmware, "Firmware 8.9.15.b2", "pcDfuDetach"},
      {"an application", WithChanged(0, 1), 3, insFlagApps, "Settings", "pcInstallPenlet"},
      {"what stays on the desktop", desktop, 0, insFlagApps, "Manual", ""},
  };
  for (const Row& row : rows) {
    for (const bool goesOn : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (goesOn ? ", let pass" : ""));
      ScriptedHost host(row.options);
      // Firmware that was let pass is refused by the pen; the run then ends.
      host.answer = [&](const Report& report) {
        return report.info.result == insPackageUnsigned ? !goesOn : report.info.result != 0;
      };
      host.pen.Answer("pcDfuDetach", 1, {.result = 8});
      host.pen.Answer("pcInstallPenlet", 1, {.result = 8});
      const InsResCode result = host.Install(row.flags, row.handle);
      EXPECT_EQ(host.verified, insBadSignature);
      EXPECT_EQ(result == insPackageUnsigned, !goesOn) << result;
      const auto refused = std::find_if(host.reports.begin(), host.reports.end(),
                                        [](const Report& report) { return report.info.result != 0; });
      ASSERT_NE(refused, host.reports.end());
      EXPECT_EQ(refused->info.result, insPackageUnsigned);
      EXPECT_EQ(refused->packageName, row.package);
      EXPECT_EQ(refused + 1 != host.reports.end(), goesOn);
      const std::string tag = row.handle ? "Update" : "NotifyNonPenPackages";
      const std::string file = refused->packageFile.substr(refused->packageFile.rfind('/') + 1);
      EXPECT_EQ(host.Logged(tag + ": Skip DRM checking error. Pak=" + file), goesOn ? 1 : 0);
      EXPECT_EQ(host.Logged(tag + ": Skip Error, code=-300. Pak=" + file), 0) << "what was let pass is sent";
      if (*row.call) {
        EXPECT_EQ(host.pen.Calls(row.call).size(), goesOn ? 1U : 0U);
      }
    }
  }
}

TEST(Run, TrustsNoForgedManifest) {
  for (const int32_t handle : {3, 0}) {
    TestBundleOptions options = WithADesktopPackage();
    std::string forged = TestUpdateXml(options);
    forged.replace(forged.find("3.1.0"), 5, "9.1.0");
    options.replaceMembers["update.xml"] = forged;
    ScriptedHost host(options);
    EXPECT_EQ(host.Install(insFlagFirmware | insFlagApps, handle), insBadSignature);
    EXPECT_TRUE(host.reports.empty());
    EXPECT_TRUE(host.pen.Calls("pcStartObex").empty());
    EXPECT_EQ(host.Logged(std::string(handle ? "Update" : "NotifyNonPenPackages") + ": Verify UpdateXML failed."), 1);
  }
}

TEST(Run, ReadsAPenThatBeganInDownloadModeAfterItsFirmware) {
  TestBundleOptions options = AutumnBundle();
  ScriptedHost host(options);
  host.pen.pens = {{3, {.id = 0x2a, .type = 1, .state = 3}}};
  host.pen.penlets = {MakePenlet({"writer", "3.1.0", "Notes", "3.1"}), MakePenlet({"settings", "1", "System", "1"})};
  host.pen.penlets[0].buildNumber = 7;
  host.pen.Answer("pcDfuDownload", 1, {.deed = [&] {
                    host.pen.pens = {{9, {.id = 0x2a}}};
                    host.pen.firmware = "12-34-080915";
                    host.pen.suffix = "b2";
                  }});
  host.pen.answers["pcEnumeratePen"] = {{.result = 1}};
  host.answer = [](const Report& report) { return report.info.result != 0; };
  host.pen.Answer("pcInstallPenlet", 2, {.deed = [&] {
                    host.pen.penlets.push_back(MakePenlet({"notebook", "1.0", "Notes", "3.1"}));
                    host.pen.penlets[1] = MakePenlet({"settings", "2.0.1", "System", "2.0"});
                  }});
  EXPECT_EQ(host.Install(insFlagFirmware | insFlagApps), insSuccess) << "1 of pcEnumeratePen is success";
  EXPECT_EQ(host.penHandle, 9);
  EXPECT_EQ(host.pen.Calls("pcInstallPenlet").size(), 2U) << "writer is there already";
  EXPECT_EQ(host.pen.Calls("pcDfuDetach").size(), 0U);
  EXPECT_EQ(host.pen.Calls().back(), "pcEnumeratePen(9)");
}

TEST(Run, ForgetsAnAbortThatCameBeforeItHadReadThePen) {
  ScriptedHost host(AutumnBundle());
  const auto abort = [&] { EXPECT_EQ(insAbort(0x2a), insSuccess); };
  host.pen.Answer("pcGetPenState", 1, {.deed = abort});
  EXPECT_EQ(host.Install(insFlagApps), insVerifyPenFailed) << "the pen says that nothing arrived";
  EXPECT_EQ(host.pen.Calls("pcInstallPenlet").size(), 3U);
  host.pen.Answer("pcGetPenInfo", 1, {.deed = abort});
  EXPECT_EQ(host.Install(insFlagApps), insAborted);
  EXPECT_EQ(host.pen.Calls("pcInstallPenlet").size(), 4U);

  host.pen.penlets = {MakePenlet({"writer", "9", "Notes", "9"}), MakePenlet({"notebook", "9", "Notes", "9"})};
  host.pen.Answer("pcGetPenletCount", 1, {.deed = abort});
  EXPECT_EQ(host.Remove("Notes"), insSuccess) << "it came before the first was removed";
  EXPECT_EQ(host.pen.Calls("pcUninstallPenlet").size(), 2U);
}

TEST(Run, EndsWhenTheHostStopsAtThePackageThatWasHandledLast) {
  ScriptedHost host(AutumnBundle());
  host.pen.penlets = {MakePenlet({"writer", "9", "Notes", "9"}), MakePenlet({"notebook", "9", "Notes", "9"})};
  host.answer = [](const Report& report) { return report.guid == "notebook"; };
  EXPECT_EQ(host.Install(insFlagApps), insAborted);
  EXPECT_EQ(host.pen.Calls("pcInstallPenlet").size(), 1U);
  EXPECT_EQ(host.pen.Calls("pcGetPenletInfo").size(), 1U) << "nothing follows but the end";
}

TEST(Removal, UninstallsThePenletsOfOneGroupAndReportsEach) {
  ScriptedHost host(AutumnBundle());
  host.pen.penlets = {MakePenlet({"a", "1.1", "Notes", "", 1, 5, 0}), MakePenlet({"b", "1", "notes"}),
                      MakePenlet({"c", "1", "Notes", "", 0}),         MakePenlet({"d", "3", "Notes", "", 1, 5, 6}),
                      MakePenlet({"e", "2", "Notes", "", 1, 0, 6}),   MakePenlet({"f"})};
  host.pen.Answer("pcUninstallPenlet", 2, {.result = 8});
  EXPECT_EQ(host.Remove("Notes"), insSuccess);
  const Calls items = {"pcGetPenletItem(3, 0)", "pcGetPenletItem(3, 1)", "pcGetPenletItem(3, 2)",
                       "pcGetPenletItem(3, 3)", "pcGetPenletItem(3, 4)", "pcGetPenletItem(3, 5)"};
  Calls expected = {"pcGetPenId(3)",          "pcRegisterVolatile(Install, 42)",
                    "pcStartObex(3, 30000)",  "pcGetPenId(3, channel 77)",
                    "pcGetPenletInfo(3, 77)", "pcGetPenletCount(3)"};
  expected.insert(expected.end(), items.begin(), items.end());
  expected.insert(expected.end(), {items[0], "pcUninstallPenlet(3, 77, a)", items[1], items[2], items[3],
                                   "pcUninstallPenlet(3, 77, d)", items[4], "pcUninstallPenlet(3, 77, e)", items[5],
                                   "pcStopObex(77)", "pcUnRegisterVolatile(Install, 42)"});
  EXPECT_EQ(host.pen.Calls(), expected);
  ASSERT_EQ(host.reports.size(), 3U);
  const char* const told[] = {"0 name of a,a,1.1,Removing,PenApp,Notes", "-6 name of d,d,3,Removing,PaperProduct,Notes",
                              "0 name of e,e,2,Removing,PenApp,Notes"};
  for (size_t i = 0; i < 3; ++i) {
    const Report& report = host.reports[i];
    EXPECT_EQ(std::to_string(report.info.result) + " " + report.packageName + "," + report.guid + "," + report.version +
                  "," + report.action + "," + report.fileType + "," + report.groupName,
              told[i]);
    EXPECT_EQ(report.info.doneCount, i + 1);
    EXPECT_EQ(report.info.totalCount, 3U);
    EXPECT_EQ(report.info.penId, 0x2aU);
    EXPECT_EQ(report.packageFile + report.bundleFile, "(null)(null)");
    EXPECT_EQ(report.penHandle, 3);
  }
  EXPECT_EQ(host.Logged("Remove: Unable remove penlet name of d. pcRet=8"), 1);

  host.reports.clear();
  host.pen.answers.clear();
  EXPECT_EQ(host.Remove(""), insSuccess);
  EXPECT_EQ(host.pen.Calls("pcUninstallPenlet").back(), "pcUninstallPenlet(3, 77, f)") << "an empty name is one";
  EXPECT_EQ(host.Remove(nullptr), insSuccess);
  EXPECT_EQ(host.Remove("Office"), insSuccess);
  EXPECT_EQ(host.pen.Calls("pcUninstallPenlet").size(), 4U);
  EXPECT_EQ(host.reports.size(), 1U);
  EXPECT_EQ(host.Logged("Remove: No group name, nothing is removed. penHandle=3"), 1);

  host.answer = [](const Report&) { return 1; };
  EXPECT_EQ(host.Remove("Notes"), insAborted);
  EXPECT_EQ(host.pen.Calls("pcUninstallPenlet").size(), 5U) << "the host stops after the first";
}
