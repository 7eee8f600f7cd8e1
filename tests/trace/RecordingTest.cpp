// Traces that are read back, whole and not.
#include <gtest/gtest.h>

#include "tests/trace/TraceRig.h"

namespace {

constexpr const char* kFirst = "{\"trace\":1,\"process\":5,\"time\":1,\"program\":\"host\"}\n";

std::string Call(int number) {
  const std::string id = std::to_string(number);
  return R"({"begin":)" + id +
         R"(,"process":5,"thread":5,"time":10,"function":"pcStopObex","pen":0,"in":{"channel":1}})" + "\n" +
         R"({"end":)" + id + R"(,"process":5,"time":12,"result":0,"out":{}})" + "\n";
}

std::string ProblemOf(const std::string& text) {
  try {
    trace::ReadRecording(text);
    return "";
  } catch (const std::invalid_argument& problem) {
    return problem.what();
  }
}

}  // namespace

TEST(Recording, IsReadHoweverFarItWasWritten) {
  const std::string text = kFirst + Call(1) + Call(2);
  size_t ended = 0;
  for (size_t length = std::string(kFirst).size(); length <= text.size(); ++length) {
    const trace::Recording recording = trace::ReadRecording(text.substr(0, length));
    const size_t now = static_cast<size_t>(
        std::count_if(recording.calls.begin(), recording.calls.end(), [](const auto& call) { return call.hasEnded; }));
    EXPECT_GE(now, ended) << length;
    EXPECT_EQ(recording.damaged, 0) << length;
    ended = now;
  }
  EXPECT_EQ(ended, 2U);
}

TEST(Recording, GoesOnAfterLinesThatItCannotRead) {
  const std::string text = kFirst + Call(1) + "{\"begin\":2,\"proc\n" + "{\"lost\":7,\"process\":5}\n" +
                           "{\"sent-by-a-newer-one\":1}\n\n[1]\n" + Call(3);
  const trace::Recording recording = trace::ReadRecording(text);
  EXPECT_EQ(recording.calls.size(), 2U);
  EXPECT_EQ(recording.damaged, 2);
  EXPECT_EQ(recording.lost, 7);
}

TEST(Recording, RefusesWhatItIsNot) {
  EXPECT_NE(ProblemOf("").find("no call"), std::string::npos);
  EXPECT_NE(ProblemOf("hello\nworld\n").find("no call"), std::string::npos);
  EXPECT_NE(ProblemOf("{\"trace\":2}\n").find("the form 2"), std::string::npos);
  TempFolder folder;
  EXPECT_THROW(trace::ReadRecordingFile(folder / "none"), std::invalid_argument);
  EXPECT_THROW(trace::ReadRecordingFile(folder.path().string()), std::invalid_argument);
  EXPECT_THROW(trace::ReadRecordingFile("/dev/zero"), std::invalid_argument);
  EXPECT_THROW(trace::ReadRecordingFile(folder.Write("zip", "PK\3\4 no zip file")), std::invalid_argument);
}

// Whatever stands in the members, nothing but an exception with words comes of it.
TEST(Recording, BearsMembersOfAnyKind) {
  for (const char* value : {"null", "-1", "1e300", "\"text\"", "[]", "{\"a\":[null]}", "18446744073709551615"}) {
    for (const char* member : {"begin", "end", "tick", "call", "process", "time", "function", "pen", "in", "out",
                               "result", "ticks", "lost", "simulator", "program"}) {
      std::string text = kFirst + Call(1) + R"({"tick":1,"call":1,"process":5,"done":3})" + "\n";
      const std::string name = std::string("\"") + member + "\":";
      for (const char* line : {"{\"trace\":1,", "{\"begin\":4,\"process\":5,", "{\"end\":4,\"process\":5,", "{"}) {
        text += line + name + value + "}\n";
      }
      EXPECT_NO_THROW(trace::ReadRecording(text)) << member << " " << value;
    }
  }
}
