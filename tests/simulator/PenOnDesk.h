// One pen, 0x2a, with two applications, and the calls that most tests make on it.
#ifndef QUARVEL_TESTS_SIMULATOR_PENONDESK_H
#define QUARVEL_TESTS_SIMULATOR_PENONDESK_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Tessvik.h"
#include "tests/support/SimPens.h"
#include "tests/support/TestBundle.h"

constexpr uint64_t kPen = 0x2a;

class PenOnDesk : public testing::Test {
 protected:
  explicit PenOnDesk(int type = 2)
      : handle(pens.Add({{"id", "0x2a"},
                         {"type", type},
                         {"firmware", "8.9.14.b1"},
                         {"penlets",
                          {{{"guid", "clock"}, {"version", "1.0"}, {"size", 100}},
                           {{"guid", "notes"}, {"version", "2.0"}, {"group", "Office"}}}}})) {}
  ~PenOnDesk() override {
    EXPECT_EQ(pbOpenChannels(), 0);
    EXPECT_EQ(pbThreads(), 0);
  }

  int32_t Open() {
    int32_t channel = 0;
    EXPECT_EQ(pcStartObex(&channel, handle, 30000), 0);
    return channel;
  }
  // Reads the penlets as a host does: "clock 1.0, notes 2.0".
  std::string List() {
    const int32_t channel = Open();
    EXPECT_EQ(pcGetPenletInfo(handle, channel, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(pcStopObex(channel), 0);
    int32_t count = 0;
    EXPECT_EQ(pcGetPenletCount(handle, &count), 0);
    std::string text;
    for (int32_t i = 0; i < count; ++i) {
      PenletInfo item{};
      const int32_t error = pcGetPenletItem(handle, i, &item);
      text += text.empty() ? "" : ", ";
      text += error ? "?" : std::string(item.guid) + " " + item.version + (item.present ? "" : " (absent)");
    }
    return text;
  }
  int32_t Install(const std::string& content, pcProgressFunction progress = nullptr, void* context = nullptr) {
    const std::string file = files.Write("package", content);
    const int32_t channel = Open();
    const int32_t error = pcInstallPenlet(handle, channel, file.c_str(), "", "", 0, progress, context);
    pcStopObex(channel);
    return error;
  }
  int32_t Download(const std::string& content) {
    return pcDfuDownload(handle, files.Write("image", content).c_str(), nullptr, nullptr, 0);
  }
  static std::vector<int32_t> Handles() {
    std::vector<int32_t> handles(20);
    handles.resize(static_cast<size_t>(pcGetPenHandles(handles.data(), 20)));
    return handles;
  }
  // Lets the pen leave and come back, and takes its new handle. False when it is not back.
  bool LeaveAndReturn() {
    pens.clock().Sleep(std::chrono::seconds(1));
    EXPECT_TRUE(Handles().empty());
    pens.clock().Sleep(std::chrono::seconds(2));
    if (Handles().empty()) return false;
    EXPECT_NE(Handles()[0], handle);
    handle = Handles()[0];
    return true;
  }

  SimPens pens;
  TempFolder files;
  int32_t handle;
};

#endif
