// How pens come and go, and what their settings and faults make of them.
#include <fstream>

#include "tests/simulator/PenOnDesk.h"

namespace {

class Behaviour : public PenOnDesk {
 protected:
  uint64_t Id() {
    uint64_t id = 0;
    return pcGetPenId(handle, &id, nullptr, nullptr, 0) == 0 ? id : 0;
  }
  int32_t State() {
    int32_t state = 0;
    pcGetPenState(handle, &state, 0, 0);
    return state;
  }
};

class AnonymousBehaviour : public PenOnDesk {
 protected:
  AnonymousBehaviour() : PenOnDesk(1) {}
};

}  // namespace

TEST_F(Behaviour, NewFirmwareTakesThePenOffTheBusTwice) {
  EXPECT_EQ(pcDfuDetach(handle, 0, 0), 0);
  EXPECT_EQ(Handles(), std::vector<int32_t>{handle}) << "leaving takes its time";
  ASSERT_TRUE(LeaveAndReturn());
  EXPECT_EQ(State(), 3);
  EXPECT_EQ(Id(), kPen) << "only pens of type 1 forget who they are";
  int32_t channel = 0;
  EXPECT_EQ(pcStartObex(&channel, handle, 30000), pbErrDownloadMode);
  EXPECT_EQ(pcDfuDetach(handle, 0, 0), pbErrDownloadMode);
  EXPECT_EQ(Download(FirmwareContent("8.9.15.b2")), 0);
  ASSERT_TRUE(LeaveAndReturn());
  EXPECT_EQ(State(), 1);
  EXPECT_EQ(pens.Contents(kPen), "8.9.15.b2; clock 1.0 ( ); notes 2.0 (Office )");
}

TEST_F(AnonymousBehaviour, InDownloadModeThePenDoesNotTellItsId) {
  EXPECT_EQ(pcDfuDetach(handle, 0, 0), 0);
  ASSERT_TRUE(LeaveAndReturn());
  uint64_t id = 0;
  EXPECT_EQ(pcGetPenId(handle, &id, nullptr, nullptr, 0), pbErrNoId);
  int32_t type = 0;
  EXPECT_EQ(pcGetPenType(handle, &type, 0, 0), 0);
  EXPECT_EQ(type, 1);
  EXPECT_EQ(Download(FirmwareContent("8.9.15.b2")), 0);
  ASSERT_TRUE(LeaveAndReturn());
  EXPECT_EQ(pcGetPenId(handle, &id, nullptr, nullptr, 0), 0);
}

TEST_F(Behaviour, AHandleIsNeverGivenOutAgain) {
  std::vector<int32_t> seen{handle};
  for (int i = 0; i < 3; ++i) {
    pbUnplug(kPen);
    EXPECT_TRUE(Handles().empty());
    pbPlug(kPen);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), Handles().at(0)), 0);
    seen.push_back(Handles()[0]);
  }
}

TEST_F(Behaviour, APenMayStayOrStayAway) {
  pens.Set(kPen, "never-leaves", "true");
  EXPECT_EQ(pcDfuDetach(handle, 0, 0), 0);
  pens.clock().Sleep(std::chrono::hours(1));
  EXPECT_EQ(Handles(), std::vector<int32_t>{handle});
  pens.Set(kPen, "never-leaves", "false");
  pens.Set(kPen, "never-returns", "true");
  EXPECT_EQ(pcDfuDetach(handle, 0, 0), 0);
  EXPECT_FALSE(LeaveAndReturn());
  EXPECT_EQ(pcGetPenState(handle, &handle, 0, 0), pbErrHandle);
  pbPlug(kPen);
  EXPECT_EQ(Handles().size(), 1U);
}

TEST_F(Behaviour, APenMayReturnAsAnother) {
  pens.Set(kPen, "leave-time", "500");
  pens.Set(kPen, "return-time", "500");
  pens.Set(kPen, "returns-as", "0x77");
  pens.Set(kPen, "returns-with", "9.9.9.z9");
  pens.Set(kPen, "starts-in-download", "true");
  pbPlug(kPen);
  handle = Handles().at(0);
  EXPECT_EQ(State(), 3);
  EXPECT_EQ(Download(FirmwareContent("8.9.15.b2")), 0);
  pens.clock().Sleep(std::chrono::milliseconds(1000));
  handle = Handles().at(0);
  EXPECT_EQ(Id(), 0x77U);
  EXPECT_EQ(pens.Contents(kPen).substr(0, 8), "9.9.9.z9");
}

TEST_F(Behaviour, TwoPensInDownloadModeLookAlike) {
  pens.Add({{"id", "0x2b"}, {"type", 1}, {"settings", {{"starts-in-download", true}}}});
  pens.Add({{"id", "0x2c"}, {"type", 1}, {"mode", "download"}});
  ASSERT_EQ(Handles().size(), 3U);
  uint64_t id = 0;
  EXPECT_EQ(pcGetPenId(Handles()[1], &id, nullptr, nullptr, 0), pbErrNoId);
  EXPECT_EQ(pcGetPenId(Handles()[2], &id, nullptr, nullptr, 0), pbErrNoId);
}

TEST_F(Behaviour, APenMayReportItsPenletsBadly) {
  const struct {
    const char* setting;
    const char* value;
    const char* list;
  } rows[] = {{"penlet-order", "reversed", "notes 2.0, clock 1.0"},
              {"penlet-order", "stored", "clock 1.0, notes 2.0"},
              {"unreadable", "clock", "?, notes 2.0"},
              {"unreadable", "", "clock 1.0, notes 2.0"},
              {"absent", "notes,x", "clock 1.0, notes 2.0 (absent)"},
              {"absent", "", "clock 1.0, notes 2.0"},
              {"penlet-count", "1", "clock 1.0"},
              {"penlet-count", "-7", ""},
              {"penlet-count", "3", "clock 1.0, notes 2.0, clock 1.0"}};
  for (const auto& row : rows) {
    pens.Set(kPen, row.setting, row.value);
    EXPECT_EQ(List(), row.list) << row.setting << "=" << row.value;
  }
  pens.Set(kPen, "penlet-count", "");
  pens.Set(kPen, "unreadable", "notes");
  List();
  PenletInfo item{};
  EXPECT_EQ(pcGetPenletItem(handle, 1, &item), pbErrUnreadable);
  EXPECT_EQ(pcGetPenletItem(handle, 2, &item), pbErrIndex);
  pens.Set(kPen, "unterminated", "true");
  List();
  EXPECT_EQ(pcGetPenletItem(handle, 0, &item), 0);
  EXPECT_EQ(std::string(item.guid, sizeof item.guid), "clockxxxxxxxxxxx");
}

TEST_F(Behaviour, APenHasSoMuchRoomAndNoMore) {
  const std::string big = PenAppContent("big", "1.0", 0, "", "app", std::string(1000, 'x'));
  pens.Set(kPen, "free-space", "900");
  EXPECT_EQ(Install(big), pbErrSpace);
  pens.Set(kPen, "free-space", "1100");
  EXPECT_EQ(Install(big), 0);
  EXPECT_EQ(Install(big), 0) << "it takes its own place";
  EXPECT_EQ(Install(PenAppContent("more", "1.0")), pbErrSpace);
}

TEST_F(Behaviour, APenMayRefuseAttributes) {
  pens.Set(kPen, "refuses-attributes", "true");
  const int32_t channel = Open();
  const PenletAttribute attribute{2, "Art"};
  EXPECT_EQ(pcSetPenletAttrib(handle, channel, "clock", &attribute, 1), pbErrRefused);
  EXPECT_EQ(pcStopObex(channel), 0);
}

TEST_F(Behaviour, ATransferTakesTheTimeOfItsSpeedInItsTicks) {
  const std::string content = PenAppContent("draw", "1.0", 0, "", "app", std::string(10'000, 'x'));
  for (const char* ownThread : {"false", "true"}) {
    pens.Set(kPen, "transfer-speed", "1000");
    pens.Set(kPen, "tick-size", "2500");
    pens.Set(kPen, "own-thread", ownThread);
    int ticks = 0;
    const int64_t start = pens.clock().Milliseconds();
    EXPECT_EQ(
        Install(
            content, [](int32_t, uint64_t, uint64_t, void* count) { return ++*static_cast<int*>(count), 0; }, &ticks),
        0);
    EXPECT_EQ(ticks, 5);
    EXPECT_EQ(pens.clock().Milliseconds() - start, static_cast<int64_t>(content.size())) << "own-thread=" << ownThread;
  }
}

TEST_F(Behaviour, ATransferThatEndsEarlyLeavesWhatThePenDoes) {
  const std::string before = pens.Contents(kPen);
  const std::string content = PenAppContent("draw", "1.0", 0, "", "app", std::string(10'000, 'x'));
  const auto stop = [](int32_t, uint64_t, uint64_t done, void*) { return done >= 3000 ? 1 : 0; };
  pens.Set(kPen, "tick-size", "1000");
  EXPECT_EQ(Install(content, stop), pbErrStopped);
  pens.Set(kPen, "unplug-at", "5000");
  EXPECT_EQ(Install(content), pbErrUnplugged);
  EXPECT_TRUE(Handles().empty());
  EXPECT_EQ(pens.Contents(kPen), before) << "no half penlet";
  pbPlug(kPen);
  handle = Handles().at(0);
  pens.Set(kPen, "leaves-half", "true");
  EXPECT_EQ(Install(content, stop), pbErrStopped);
  EXPECT_EQ(pens.Contents(kPen), before + "; draw 0 ( )");
}

TEST_F(Behaviour, AFunctionFailsAtItsCallOrAlways) {
  pens.Add({{"id", "0x2b"}});
  const int32_t other = Handles().at(1);
  int32_t state = 0;
  const auto states = [&](int32_t of) {
    std::vector<int32_t> results;
    for (int i = 0; i < 3; ++i) results.push_back(pcGetPenState(of, &state, 0, 0));
    return results;
  };
  ASSERT_EQ(pbPenFault(kPen, "pcGetPenState", 2, 777), 0);
  EXPECT_EQ(states(other), (std::vector<int32_t>{0, 0, 0})) << "the fault is another pen's";
  EXPECT_EQ(states(handle), (std::vector<int32_t>{0, 777, 0}));
  ASSERT_EQ(pbPenFault(kPen, "pcStopObex", 0, -5), 0);
  ASSERT_EQ(pbPenFault(kPen, "pcRegisterVolatile", 0, -6), 0);
  const int32_t channel = Open();
  EXPECT_EQ(pcStopObex(channel), -5) << "the channel tells the pen";
  EXPECT_EQ(pcRegisterVolatile("Install", kPen), -6) << "and so does the id";
  ASSERT_EQ(pbClearPenFaults(kPen), 0);
  EXPECT_EQ(pcStopObex(channel), 0) << "the fault left it open";
  ASSERT_EQ(pbFault("pcGetPenState", 0, 8), 0);
  EXPECT_EQ(states(other), (std::vector<int32_t>{8, 8, 8}));
  ASSERT_EQ(pbClearFaults(), 0);
}

TEST_F(Behaviour, WhatDoesNotExistIsAnErrorThatNamesIt) {
  char text[200];
  const auto problem = [&] { return pbLastProblem(text, sizeof text), std::string(text); };
  const struct {
    const char* setting;
    const char* value;
  } rows[] = {{"never-sleeps", "true"}, {"never-leaves", "yes"},  {"tick-size", "12x"},       {"tick-size", "-2"},
              {"returns-as", "me"},     {"penlet-count", "many"}, {"penlet-order", "random"}, {"returns-with", "new"}};
  for (const auto& row : rows) {
    EXPECT_EQ(pbSet(kPen, row.setting, row.value), pbErrSetting) << row.setting << "=" << row.value;
    EXPECT_NE(problem().find(row.setting), std::string::npos) << problem();
  }
  EXPECT_EQ(pbPenFault(kPen, "pcGetPen", 1, 5), pbErrFunction);
  EXPECT_EQ(pbFault("pcGetPenId", -1, 5), pbErrArgument);
  EXPECT_EQ(pbSet(99, "tick-size", "1"), pbErrNoPen);
  EXPECT_EQ(pbAddPen(R"({"id": "0x2a"})"), pbErrPenExists);
}

TEST_F(Behaviour, APensFileIsReadStrictlyAndAtOnce) {
  const std::string file = (pens.folder().path() / "0x2a.json").string();
  SimPens::Json pen = pens.Pen(kPen);
  pen["name"] = "Pen of Ada";
  std::ofstream(file) << pen;
  char name[100];
  uint64_t id = 0;
  EXPECT_EQ(pcGetPenId(handle, &id, nullptr, name, sizeof name), 0);
  EXPECT_STREQ(name, "Pen of Ada") << "edited by hand";
  pen["settings"]["never-sleeps"] = true;
  std::ofstream(file) << pen;
  EXPECT_EQ(pcGetPenId(handle, &id, nullptr, name, sizeof name), pbErrSetting);
  std::ofstream(file) << "{\"id\": \"0x2a\", \"nmae\": 1}";
  EXPECT_EQ(pcGetPenId(handle, &id, nullptr, name, sizeof name), pbErrPenFile);
}

TEST_F(Behaviour, ForeignBytesInAnApplicationsHeadDoNoHarm) {
  EXPECT_EQ(Install(PenAppContent("caf", "1.0", 0, "Caf\xe9")), 0);
  EXPECT_EQ(List(), "clock 1.0, notes 2.0, caf 1.0");
}
