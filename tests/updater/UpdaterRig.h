// One run with everything real around it: a signed bundle, a simulated pen, the exported functions and the log.
#ifndef QUARVEL_TESTS_UPDATER_UPDATERRIG_H
#define QUARVEL_TESTS_UPDATER_UPDATERRIG_H

#include <functional>
#include <string>
#include <vector>

#include "installer/QuarvelPublic.h"
#include "tests/support/Autumn.h"
#include "tests/support/SimPens.h"
#include "tests/support/TestLog.h"

// A report to the host, with the texts that it borrowed.
struct Report {
  PenUpdateProgressCallbackInfo info{};
  int32_t penHandle = 0;
  std::string packageName, packageFile, guid, version, action, fileType, groupName, bundleFile;

  Report(int32_t handle, const PenUpdateProgressCallbackInfo& given)
      : info(given),
        penHandle(handle),
        packageName(Text(given.packageName)),
        packageFile(Text(given.packageFile)),
        guid(Text(given.guid)),
        version(Text(given.version)),
        action(Text(given.action)),
        fileType(Text(given.fileType)),
        groupName(Text(given.groupName)),
        bundleFile(Text(given.bundleFile)) {}

  static std::string Text(const char* text) { return text ? text : "(null)"; }
};

// What a host answers to a report.
using Answer = std::function<int32_t(const Report&)>;

class UpdaterRig {
 public:
  explicit UpdaterRig(const TestBundleOptions& options = AutumnBundle(), const SimPens::Json& pen = OldPen())
      : m_bundle(options), m_penHandle(m_pens.Add(pen)) {}

  // Installs the bundle's file on the pen. The pen's handle is kept for the next run.
  InsResCode Install(uint32_t flags = insFlagFirmware | insFlagApps, const char* group = nullptr) {
    const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
    const PenUpdateCfg cfg{flags, certificates, 1, group};
    m_reports.clear();
    return insStartInstallFile(&m_penHandle, m_bundle.path().c_str(), &cfg, m_callback, this);
  }
  InsResCode Remove(const char* group) {
    m_reports.clear();
    return insRemoveGroup(m_penHandle, group, m_callback, this);
  }

  // How the host answers from now on; it goes on and stops at the first failure otherwise.
  void AnswerWith(Answer answer) { m_answer = std::move(answer); }
  void TakeNoReports() { m_callback = nullptr; }

  // Whether the run left the pen as it should be left: no channel, no mark.
  bool LeftNothingOpen() const { return pbOpenChannels() == 0 && pbMarks() == 0; }

  // The log's lines that hold a text.
  std::vector<std::string> Logged(const std::string& text) {
    std::vector<std::string> found;
    for (const std::string& line : m_log.Lines()) {
      if (line.find(text) != std::string::npos) found.push_back(line);
    }
    return found;
  }

  SimPens& pens() { return m_pens; }
  TestLog& log() { return m_log; }
  const TestBundle& bundle() const { return m_bundle; }
  const std::vector<Report>& reports() const { return m_reports; }
  int32_t& penHandle() { return m_penHandle; }

 private:
  static int32_t OnReport(int32_t penHandle, const PenUpdateProgressCallbackInfo* info, void* userData) {
    auto& rig = *static_cast<UpdaterRig*>(userData);
    rig.m_reports.emplace_back(penHandle, *info);
    return rig.m_answer(rig.m_reports.back());
  }

  SimPens m_pens;
  TestLog m_log;
  TestBundle m_bundle;
  int32_t m_penHandle;
  PenUpdateProgressCallback m_callback = OnReport;
  Answer m_answer = [](const Report& report) { return report.info.result != insSuccess; };
  std::vector<Report> m_reports;
};

#endif
