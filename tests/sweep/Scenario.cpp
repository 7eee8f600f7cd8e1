#include "tests/sweep/Scenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>

#include "platform/Tessvik.h"

namespace {

using Json = SimPens::Json;

Json Penlet(const char* guid, const char* version, const char* group, const char* groupVersion) {
  return {{"guid", guid}, {"version", version}, {"group", group}, {"groupVersion", groupVersion}};
}

Json StartPen(Run run) {
  Json pen = OldPen();
  if (run == Run::kInstall) return pen;
  pen["firmware"] = "8.9.15.b2";
  pen["penlets"] = {Penlet("settings", "2.0.1", "System", "2.0"), Penlet("sketch", "2.2", "Notes", "3.1"),
                    Penlet("writer", "3.1.0", "Notes", "3.1"), Penlet("notebook", "1.0", "Notes", "3.1")};
  return pen;
}

// What the pen is to hold in the end: each in the form of SimPens::Contents.
std::vector<std::string> WantedPenlets(Run run) {
  if (run == Run::kRemoval) return {"settings 2.0.1 (System 2.0)"};
  return {"settings 2.0.1 (System 2.0)", "sketch 2.2 (Notes 3.1)", "writer 3.1.0 (Notes 3.1)",
          "notebook 1.0 (Notes 3.1)"};
}

// How many of the process's threads or open files there are.
int64_t CountIn(const char* folder) {
  std::filesystem::directory_iterator entries(folder);
  return std::distance(begin(entries), end(entries));
}

bool Happened(const std::string& line) {
  static const std::regex complaint("Unable|[Ff]ailed|mismatch|Not Found|Abort");
  return std::regex_search(line, complaint);
}

// Numbers that differ from run to run.
std::string Masked(const std::string& line) {
  static const std::regex numbers("(penHandle|bundleHandle)=\\d+");
  return std::regex_replace(line, numbers, "$1=N");
}

// The mishaps to come, by the numbers of their calls.
struct Plan {
  std::vector<Strike>& strikes;
  FakeClock& clock;
  int call = 0;

  int32_t operator()(int32_t, const std::string& called, int32_t) {
    ++call;
    for (Strike& strike : strikes) {
      if (strike.call != call) continue;
      strike.function = called;
      return Happen(strike.mishap);
    }
    return 0;
  }
  int32_t Happen(Mishap mishap) {
    switch (mishap) {
      case Mishap::kFail:
        return kSweptError;
      case Mishap::kUnplug:
        pbUnplug(kPenId);
        return 0;
      case Mishap::kAbort:
        insAbort(kPenId);
        return 0;
      case Mishap::kLate:
        clock.Sleep(std::chrono::seconds(90));
        return 0;
      case Mishap::kLost:
        return -kSweptError;
    }
    return 0;
  }
};

bool Hit(const Strike& strike, Mishap mishap, const char* function) {
  return strike.mishap == mishap && strike.function == function;
}

}  // namespace

SweepBundle::SweepBundle() : m_bundle(AutumnBundle()) {
  const char* const certificates[] = {MakeTestIdentity().certPem.c_str()};
  const PenUpdateCfg cfg{insFlagFirmware | insFlagApps, certificates, 1, nullptr};
  EXPECT_EQ(insLoadBundle(m_bundle.path().c_str(), &m_handle), insSuccess);
  EXPECT_EQ(insVerifyBundle(m_handle, &cfg), insSuccess);
}

Scenario::Scenario(const SweepBundle& bundle, Run run)
    : m_bundle(bundle), m_run(run), m_penHandle(m_pens.Add(StartPen(run))) {
  insGetVersion(nullptr, nullptr, 0);  // the log's file and thread are there from now on
  m_log.Lines();
}

int32_t Scenario::OnReport(int32_t, const PenUpdateProgressCallbackInfo* info, void* userData) {
  auto& scenario = *static_cast<Scenario*>(userData);
  // An install ends with the first failing package; a removal goes on.
  if (info->result != insSuccess) return scenario.m_run == Run::kInstall ? 1 : 0;
  uint64_t& told = scenario.m_progress[info->guid];
  const uint64_t now = scenario.m_run == Run::kInstall ? info->itemDone : info->doneCount;
  EXPECT_GE(now, told) << info->guid;
  told = now;
  return 0;
}

InsResCode Scenario::Go(uint32_t flags) {
  m_progress.clear();
  if (m_run == Run::kRemoval) return insRemoveGroup(m_penHandle, "Notes", OnReport, this);
  const PenUpdateCfg cfg{insFlagFirmware | insFlagApps | flags, nullptr, 0, nullptr};
  return insStartInstall(&m_penHandle, m_bundle.handle(), &cfg, OnReport, this);
}

std::vector<std::string> Scenario::Undisturbed() {
  EXPECT_EQ(Go(0), insSuccess);
  EXPECT_TRUE(IsWell()) << m_pens.Contents(kPenId);
  return m_pens.Calls();
}

Outcome Scenario::Disturbed(Mishap mishap, int call) {
  std::vector<Strike> strikes = {{mishap, call}};
  return Disturbed(strikes);
}

Outcome Scenario::Disturbed(std::vector<Strike>& strikes) {
  m_pens.OnCall(Plan{strikes, m_pens.clock()});
  const int64_t threads = CountIn("/proc/self/task");
  const int64_t files = CountIn("/proc/self/fd");
  Outcome outcome;
  outcome.result = Go(0);
  pbSetHook(nullptr, nullptr);
  outcome.function = strikes.front().function;
  outcome.calls = m_pens.Calls();
  outcome.logged = FirstComplaint();
  CheckNothingLeft(strikes);
  CheckHandle(outcome.result, strikes);
  EXPECT_EQ(CountIn("/proc/self/fd"), files + pbOpenChannels() + pbMarks()) << "open files";
  EXPECT_EQ(CountIn("/proc/self/task"), threads) << "threads";
  m_pens.clock().Sleep(std::chrono::minutes(1));  // whatever the pen was about to do is done
  outcome.pen = DescribePen();
  outcome.advice = Recover(outcome.result);
  return outcome;
}

// What a closing call that failed did not close, and what an opening call opened that said it did not, is the pen
// library's.
void Scenario::CheckNothingLeft(const std::vector<Strike>& strikes) {
  int channels = 0, marks = 0;
  for (const Strike& strike : strikes) {
    channels += Hit(strike, Mishap::kFail, "pcStopObex") || Hit(strike, Mishap::kLost, "pcStartObex");
    marks += Hit(strike, Mishap::kFail, "pcUnRegisterVolatile") || Hit(strike, Mishap::kLost, "pcRegisterVolatile");
  }
  EXPECT_LE(pbOpenChannels(), channels);
  EXPECT_EQ(pbMarks(), marks);
  EXPECT_EQ(pbThreads(), 0);
}

// After a run that says that all is well the host has the pen's handle; after another one too, unless the pen was away
// or could not be asked at the end.
void Scenario::CheckHandle(InsResCode result, const std::vector<Strike>& strikes) const {
  const bool answers = std::all_of(strikes.begin(), strikes.end(), [](const Strike& strike) {
    return strike.mishap == Mishap::kFail && strike.function != "pcGetPenHandles" && strike.function != "pcGetPenId" &&
           strike.function != "pcDfuDownload";
  });
  const Json pen = m_pens.Pen(kPenId);
  if (!pen["connected"] || (!answers && result != insSuccess)) return;
  EXPECT_EQ(m_penHandle, m_pens.HandleOf(kPenId)) << "the host's handle";
  if (result == insSuccess && m_run == Run::kInstall) {
    EXPECT_TRUE(IsWell()) << m_pens.Contents(kPenId);
  }
}

std::string Scenario::FirstComplaint() {
  for (const std::string& line : m_log.Lines()) {
    if (Happened(line)) return Masked(line);
  }
  return "";
}

bool Scenario::IsWell() const {
  std::string wanted = "8.9.15.b2";
  for (const std::string& penlet : WantedPenlets(m_run)) wanted += "; " + penlet;
  return m_pens.Contents(kPenId) == wanted;
}

std::string Scenario::DescribePen() const {
  const Json pen = m_pens.Pen(kPenId);
  const std::string contents = m_pens.Contents(kPenId);
  std::string text = !pen["connected"] ? "unplugged" : pen["mode"] == "download" ? "in download mode" : "connected";
  if (m_run == Run::kRemoval) {
    return text + ", " + std::to_string(pen["penlets"].size() - 1) + " of the group's 3 left";
  }
  const std::vector<std::string> wanted = WantedPenlets(m_run);
  const auto held = std::count_if(wanted.begin(), wanted.end(), [&](const std::string& penlet) {
    return contents.find(penlet) != std::string::npos;
  });
  return text + (contents.starts_with("8.9.15.b2") ? ", new" : ", old") + " firmware, " + std::to_string(held) +
         " of 4 applications as wanted";
}

// Goes through what a user would do, mildest first, until the pen is well; returns what it took.
std::string Scenario::Recover(InsResCode result) {
  const std::string again = m_run == Run::kInstall ? "install again" : "remove again";
  std::string advice;
  if (pbMarks() != 0) {
    advice += "restart the program, ";
    EXPECT_EQ(pcUnRegisterVolatile("Install", kPenId), 0);
  }
  const Json pen = m_pens.Pen(kPenId);
  if (!pen["connected"] || pen["mode"] == "download" || pbOpenChannels() != 0) {
    advice += "reconnect the pen, ";
    pbUnplug(kPenId);
    pbPlug(kPenId);
  }
  const bool wasWell = IsWell();
  m_penHandle = m_pens.HandleOf(kPenId);
  const InsResCode second = Go(0);
  EXPECT_TRUE(second == insSuccess || second == insNothingToDo) << "a second run ended with " << second;
  if (!wasWell) advice += again;
  if (!IsWell()) {
    advice += " with force";
    EXPECT_EQ(Go(insFlagForce), insSuccess);
  }
  EXPECT_TRUE(IsWell()) << m_pens.Contents(kPenId);
  EXPECT_EQ(pbOpenChannels() + pbMarks(), 0) << "after the second run";
  if (advice.empty()) return result == insSuccess ? "nothing" : "nothing: all is done";
  if (advice.ends_with(", ")) advice.resize(advice.size() - 2);
  return advice;
}
