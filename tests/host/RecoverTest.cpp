// quarvel recover on pens in every state in which an install can leave one: killed at each of its pen calls, with each
// of the pen library's functions failing, and with pens that misbehave. A person reconnects the pen when asked.
#include <gtest/gtest.h>

#include <numeric>

#include "tests/host/HostRig.h"

namespace {

constexpr const char* kWhole = "8.9.15.b2; old 1.0 3.1; sketch 2.3 3.1; writer 3.1.0 3.1";
constexpr const char* kUntouched = "8.9.14.b1; old 1.0 3.0; sketch 2.2 3.0";
constexpr const char* kNobodyIsLost = "no run that is kept here left one half-way";

// A desk with a pen that holds an application of the bundle's group that the bundle raises without carrying it.
class RecoverDesk {
 public:
  explicit RecoverDesk(const Words& settings = {}) : m_rig(FirmwareBundle()) {
    m_rig.Sim({"add", "--id", "0x2a", "--firmware", "8.9.14.b1", "--penlet",
               "guid=sketch,name=Sketchpad,version=2.2,build=1,group=Notes,group-version=3.0", "--penlet",
               "guid=old,name=Old,version=1.0,group=Notes,group-version=3.0"});
    Set({"leave-time=0", "return-time=0"});
    if (!settings.empty()) Set(settings);
  }
  HostRig& rig() { return m_rig; }
  void Set(Words settings) const {
    settings.insert(settings.begin(), {"set", "0x2a"});
    m_rig.Sim(settings);
  }

  // Recovers, while somebody unplugs the pen and plugs it in whenever that is asked for.
  ProgramResult Recover(const std::string& options = "--wait 20") const {
    return m_rig.Shell(
        "sim='" TESSVIK_SIM_PROGRAM "'\n\"$quarvel\" recover --json " + options +
        " >\"$dir/steps\" & run=$!\n"
        "for i in $(seq 400); do\n  kill -0 $run 2>/dev/null || break\n"
        "  if grep -q reconnect \"$dir/steps\"; then $sim unplug 0x2a 2>/dev/null; $sim plug 0x2a; break; fi\n"
        "  sleep 0.1\ndone\nwait $run");
  }
  // "firmware; guid version group version; ..." in the order of the names.
  std::string Holdings() const {
    Json pens = Json::parse(m_rig.Quarvel({"pens", "--json"}).out).at("pens");
    if (pens.empty()) return "not connected";
    if (pens[0].at("firmware").is_null()) return "download";
    std::vector<std::string> texts;
    for (const Json& penlet : pens[0].at("penlets")) {
      texts.push_back("; " + penlet.at("guid").get<std::string>() + ' ' + penlet.at("version").get<std::string>() +
                      ' ' + penlet.at("groupVersion").get<std::string>());
    }
    std::sort(texts.begin(), texts.end());
    return std::accumulate(texts.begin(), texts.end(), pens[0].at("firmware").get<std::string>());
  }

 private:
  HostRig m_rig;
};

// Everything is as wanted, or nothing was ever touched and that is said.
ProgramResult Recovered(RecoverDesk& desk) {
  ProgramResult result = desk.Recover();
  bool untouched = Has(result.err, kNobodyIsLost);
  if (untouched && desk.Holdings() == "not connected") desk.rig().Sim({"plug", "0x2a"});
  std::string holdings = desk.Holdings();
  EXPECT_EQ(holdings, untouched && holdings != kWhole ? kUntouched : kWhole) << result.err;
  EXPECT_EQ(result.status, 0) << result.err;
  result.out = untouched ? "untouched" : "recovered";
  return result;
}

size_t CountRecovered(const std::vector<ProgramResult>& results) {
  return static_cast<size_t>(std::count_if(results.begin(), results.end(),
                                           [](const ProgramResult& result) { return result.out == "recovered"; }));
}

TEST(RecoverSweep, FinishesWhatWasKilledAtAnyPenCall) {
  size_t recovered = 0;
  constexpr int kAtOnce = 16;
  bool wasKilled = true;
  for (int first = 1; wasKilled; first += kAtOnce) {
    std::vector<int> calls(kAtOnce);
    std::iota(calls.begin(), calls.end(), first);
    std::vector<ProgramResult> results = RunAll(calls, [](int call) {
      SCOPED_TRACE("killed at call " + std::to_string(call));
      RecoverDesk desk({"kills-host-at=" + std::to_string(call)});
      int status = desk.rig().Install().status;
      desk.Set({"kills-host-at=0"});
      if (call % 3 == 0) desk.rig().Sim({"unplug", "0x2a"});
      ProgramResult result = status == 0 ? ProgramResult{} : Recovered(desk);
      result.status = status;
      return result;
    });
    recovered += CountRecovered(results);
    wasKilled = results.back().status != 0;
  }
  EXPECT_GT(recovered, 40U);
}

TEST(RecoverSweep, FinishesWhatAFailingPenCallStopped) {
  struct Fault {
    const char* function;
    int call;
  };
  std::vector<Fault> faults;
  for (const char* function : {"pcGetPenHandles", "pcGetPenId", "pcGetPenType", "pcGetPenState", "pcStartObex",
                               "pcStopObex", "pcGetPenInfo", "pcGetPenletInfo", "pcGetVersionInfo", "pcGetPenletCount",
                               "pcGetPenletItem", "pcRegisterVolatile", "pcUnRegisterVolatile", "pcInstallPenlet",
                               "pcSetPenletAttrib", "pcDfuDetach", "pcDfuDownload", "pcEnumeratePen"}) {
    for (int call : {1, 2, 3, 4}) faults.push_back({function, call});
  }
  size_t recovered = 0;
  for (size_t from = 0; from < faults.size(); from += 18) {
    std::vector<Fault> some(faults.begin() + static_cast<std::ptrdiff_t>(from),
                            faults.begin() + static_cast<std::ptrdiff_t>(from + 18));
    recovered += CountRecovered(RunAll(some, [](const Fault& fault) {
      SCOPED_TRACE(fault.function + (" at call " + std::to_string(fault.call)));
      RecoverDesk desk;
      desk.rig().Sim(
          {"fault", fault.function, "--call", std::to_string(fault.call), "--error", "4711", "--pen", "0x2a"});
      int status = desk.rig().Install().status;
      desk.rig().Sim({"fault", "--clear", "--pen", "0x2a"});
      return status == 0 ? ProgramResult{} : Recovered(desk);
    }));
  }
  EXPECT_GT(recovered, 12U);
}

TEST(Recover, EndsWithThePenWholeOrSaysWhyItCannot) {
  struct Case {
    const char* name;
    Words before;     // settings during the install
    Words meanwhile;  // what is done to the pen before the recovery
    const char* options;
    int status;
    const char* says;
    const char* holds;
  };
  const Case cases[] = {
      {"unplugged in its firmware", {"unplug-at=10"}, {}, "--wait 20", 0, "is recovered", kWhole},
      {"half an application",
       {"leaves-half=true", "free-space=30"},
       {"set", "0x2a", "free-space=1000000"},
       "",
       0,
       "is recovered",
       kWhole},
      {"of a type that tells its id in download mode",
       {"kills-host-at=0"},
       {"set", "0x2a", "mode=download"},
       "--pen 0x2a --wait 20",
       0,
       "is recovered",
       kWhole},
      {"no room", {"free-space=0"}, {}, "", 5, "Check that the pen stays connected and has room", nullptr},
      {"gone for good",
       {"unplug-at=10"},
       {"remove", "0x2a"},
       "--wait 1",
       5,
       "Pen 0x000000000000002a did not come back within 1 s. Connect it and run `quarvel recover` again.",
       "not connected"},
      {"in download mode each time",
       {"unplug-at=10"},
       {"set", "0x2a", "starts-in-download=true"},
       "--wait 4",
       5,
       "A pen starts in download mode each time",
       "download"},
  };
  std::vector<ProgramResult> results = RunAll(cases, [](const Case& row) {
    RecoverDesk desk(row.before);
    desk.rig().Install();
    if (!row.meanwhile.empty()) desk.rig().Sim(row.meanwhile);
    ProgramResult result = desk.Recover(row.options);
    result.out = desk.Holdings();
    return result;
  });
  for (size_t i = 0; i < results.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    EXPECT_EQ(results[i].status, cases[i].status) << results[i].err;
    EXPECT_PRED2(Has, results[i].err, cases[i].says);
    if (cases[i].holds) {
      EXPECT_EQ(results[i].out, cases[i].holds);
    }
  }
}

// One pen that cannot be recovered does not keep the others from it, and pens that an earlier run lost are not waited
// for.
TEST(Recover, ServesEachPenByItself) {
  HostRig rig;
  rig.AddPen("0x2a", {"free-space=0"}).AddPen("0x2b", {"free-space=0"}).AddPen("0x2c", {"free-space=0"});
  ASSERT_EQ(rig.Install({"--pen", "0x2c"}).status, 5);
  ASSERT_EQ(rig.Install({"--pen", "0x2a", "--pen", "0x2b"}).status, 5);
  rig.Sim({"unplug", "0x2c"});
  rig.Sim({"set", "0x2b", "free-space=1000000"});
  ProgramResult result = rig.Quarvel({"recover", "--wait", "1"});
  EXPECT_EQ(result.status, 5) << result.err;
  EXPECT_PRED2(Has, result.out, "Pen 0x000000000000002b is recovered");
  EXPECT_PRED2(Has, result.out, "Pen 0x000000000000002c is not connected; connect it and run `quarvel recover --pen");
  ProgramResult again =
      rig.Shell("mv \"$bundle\" \"$bundle.away\"; \"$quarvel\" recover; mv \"$bundle.away\" \"$bundle\"");
  EXPECT_EQ(again.status, 0) << "mv's own";
  EXPECT_PRED2(Has, again.err, "that pen 0x000000000000002a was to get is not there any more");
}

}  // namespace
