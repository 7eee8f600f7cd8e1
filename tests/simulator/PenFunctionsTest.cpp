// What the nineteen functions do, and what they refuse.
#include <stdio.h>

#include <functional>
#include <memory>
#include <set>

#include "tests/simulator/PenOnDesk.h"

namespace {

PenletAttribute Attribute(int32_t id, const std::string& value) {
  PenletAttribute attribute{};
  attribute.id = id;
  value.copy(attribute.value, sizeof attribute.value);
  return attribute;
}

}  // namespace

class PenFunctions : public PenOnDesk {};

TEST_F(PenFunctions, TellWhoThePenIs) {
  EXPECT_EQ(Handles(), std::vector<int32_t>{handle});
  EXPECT_EQ(pcGetPenHandles(nullptr, 0), 1);
  uint64_t id = 0;
  char name[10];
  EXPECT_EQ(pcGetPenId(handle, &id, nullptr, name, sizeof name), 0);
  EXPECT_EQ(id, kPen);
  EXPECT_STREQ(name, "Simulated");  // cut to fit
  int32_t type = 0x70000;
  EXPECT_EQ(pcGetPenType(handle, &type, 0, 0), 0);
  EXPECT_EQ(type, 0x70002) << "only the low 16 bits are written";
  int32_t state = 0;
  EXPECT_EQ(pcGetPenState(handle, &state, 0, 0), 0);
  EXPECT_EQ(state, 1);
  EXPECT_EQ(pcEnumeratePen(handle), 0U);
  EXPECT_EQ(pcEnumeratePen(handle), 1U);
}

TEST_F(PenFunctions, TellTheFirmwareInTwoTexts) {
  PenVersionInfo info{};
  EXPECT_EQ(pcGetVersionInfo(handle, &info), pbErrNotRead);
  const int32_t channel = Open();
  EXPECT_EQ(pcGetPenInfo(handle, channel, nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(pcStopObex(channel), 0);
  EXPECT_EQ(pcGetVersionInfo(handle, &info), 0);
  EXPECT_STREQ(info.firmwareVersion, "12-34-080914");
  EXPECT_STREQ(info.versionSuffix, "b1");
}

TEST_F(PenFunctions, InstallMarkAndRemoveAPenlet) {
  std::vector<uint64_t> sent;
  const auto progress = [](int32_t, uint64_t total, uint64_t done, void* context) {
    static_cast<std::vector<uint64_t>*>(context)->assign({total, done});
    return 0;
  };
  const std::string content = PenAppContent("draw", "3.1", 7, "Draw");
  EXPECT_EQ(Install(content, progress, &sent), 0);
  EXPECT_EQ(sent, (std::vector<uint64_t>{content.size(), content.size()}));
  EXPECT_EQ(List(), "clock 1.0, notes 2.0, draw 3.1");

  const int32_t channel = Open();
  const std::vector<PenletAttribute> attributes = {Attribute(2, "Art"), Attribute(3, "4.5"), Attribute(6, "Draw!")};
  EXPECT_EQ(pcSetPenletAttrib(handle, channel, "draw", attributes.data(), 3), 0);
  EXPECT_EQ(pcUninstallPenlet(handle, channel, "clock"), 0);
  EXPECT_EQ(pcStopObex(channel), 0);
  EXPECT_EQ(List(), "notes 2.0, draw 3.1");
  PenletInfo item{};
  EXPECT_EQ(pcGetPenletItem(handle, 1, &item), 0);
  EXPECT_STREQ(item.groupName, "Art");
  EXPECT_STREQ(item.groupVersion, "4.5");
  EXPECT_STREQ(item.name, "Draw");
  EXPECT_STREQ(item.displayName, "Draw!");
  EXPECT_EQ(item.buildNumber, 7);

  // A newer one takes its place and keeps its group.
  EXPECT_EQ(Install(PenAppContent("draw", "3.2", 8, "Draw")), 0);
  EXPECT_EQ(pens.Contents(kPen), "8.9.14.b1; notes 2.0 (Office ); draw 3.2 (Art 4.5)");
}

TEST_F(PenFunctions, TellPaperByItsIdentifiers) {
  ASSERT_EQ(Install(PenAppContent("pad", "1.0", 0, "Pad", "paper")), 0);
  EXPECT_EQ(List(), "clock 1.0, notes 2.0, pad 1.0");
  PenletInfo item{};
  EXPECT_EQ(pcGetPenletItem(handle, 2, &item), 0);
  EXPECT_TRUE(item.firstId != 0 && item.secondId != 0);
  EXPECT_EQ(pcGetPenletItem(handle, 0, &item), 0);
  EXPECT_TRUE(item.firstId == 0 && item.secondId == 0);
}

// Each thing that a pen does not do has an error of its own, and changes nothing.
TEST_F(PenFunctions, RefuseWhatAPenCannotDo) {
  const int32_t other = pens.Add({{"id", "0x2b"}, {"type", 2}});
  const int32_t channel = Open();
  int32_t number = 0;
  uint64_t id = 0;
  PenletInfo item{};
  PenVersionInfo version{};
  const std::string app = files.Write("a", PenAppContent("draw", "1.0"));
  const std::string image = files.Write("i", FirmwareContent("8.9.15.b2"));
  const auto install = [&](int32_t onHandle, int32_t over, const std::string& file) {
    return pcInstallPenlet(onHandle, over, file.c_str(), "", "", 0, nullptr, nullptr);
  };
  const auto installText = [&](const std::string& text) { return install(handle, channel, files.Write("t", text)); };
  const auto attribute = [&](const char* guid, int32_t which, const std::string& value) {
    const PenletAttribute one = Attribute(which, value);
    return pcSetPenletAttrib(handle, channel, guid, &one, 1);
  };
  const std::string before = pens.Contents(kPen);
  const struct {
    const char* name;
    int32_t error;
    std::function<int32_t()> call;
  } rows[] = {
      {"a handle that is gone", pbErrHandle, [&] { return pcGetPenState(999, &number, 0, 0); }},
      {"handle 0", pbErrHandle, [&] { return pcGetPenId(0, &id, nullptr, nullptr, 0); }},
      {"no place for the answer", pbErrArgument, [&] { return pcGetPenId(handle, nullptr, nullptr, nullptr, 0); }},
      {"a second channel", pbErrChannelBusy, [&] { return pcStartObex(&number, handle, 30000); }},
      {"no time for a channel", pbErrArgument, [&] { return pcStartObex(&number, other, 0); }},
      {"a closed channel", pbErrChannel, [&] { return pcGetPenletInfo(handle, 99, nullptr, 0, nullptr, nullptr); }},
      {"closing it", pbErrChannel, [&] { return pcStopObex(99); }},
      {"no channel", pbErrChannel, [&] { return install(handle, 0, app); }},
      {"another pen's channel", pbErrOtherChannel, [&] { return install(other, channel, app); }},
      {"the id over a foreign channel", pbErrOtherChannel,
       [&] { return pcGetPenId(other, &id, &channel, nullptr, 0); }},
      {"the state over a foreign channel", pbErrOtherChannel,
       [&] { return pcGetPenState(other, &number, channel, 0); }},
      {"a list that was not read", pbErrNotRead, [&] { return pcGetPenletItem(handle, 0, &item); }},
      {"its count", pbErrNotRead, [&] { return pcGetPenletCount(handle, &number); }},
      {"a version that was not read", pbErrNotRead, [&] { return pcGetVersionInfo(handle, &version); }},
      {"a file that is not there", pbErrFile, [&] { return install(handle, channel, app + "x"); }},
      {"a firmware image as application", pbErrNotApp, [&] { return install(handle, channel, image); }},
      {"an application without GUID", pbErrNotApp, [&] { return installText("TESSVIK-APP 1\nversion: 1\n\n"); }},
      {"a build that is no number", pbErrNotApp,
       [&] { return installText("TESSVIK-APP 1\nguid: a\nversion: 1\nbuild: x\n\n"); }},
      {"a head without end", pbErrNotApp, [&] { return installText("TESSVIK-APP 1\nguid: a\nversion: 1\n"); }},
      {"an unknown kind", pbErrNotApp, [&] { return installText(PenAppContent("a", "1", 0, "", "desk")); }},
      {"a GUID of 16 characters", pbErrGuid, [&] { return installText(PenAppContent("1234567890123456", "1")); }},
      {"a version over its field", pbErrText, [&] { return installText(PenAppContent("a", "1.2.3.4.5.6.7.8.9")); }},
      {"attributes of an unknown penlet", pbErrNoPenlet, [&] { return attribute("draw", 2, "Art"); }},
      {"attributes of a long GUID", pbErrGuid, [&] { return attribute("1234567890123456", 2, "Art"); }},
      {"an unknown attribute", pbErrAttribute, [&] { return attribute("clock", 9, "x"); }},
      {"a group over its field", pbErrText, [&] { return attribute("clock", 2, std::string(128, 'g')); }},
      {"a group version over its field", pbErrText, [&] { return attribute("clock", 3, std::string(20, '1')); }},
      {"a value without its NUL", pbErrText, [&] { return attribute("clock", 1, std::string(256, 'c')); }},
      {"removal of an unknown penlet", pbErrNoPenlet, [&] { return pcUninstallPenlet(handle, channel, "draw"); }},
      {"a download outside its mode", pbErrNotDownloadMode,
       [&] { return pcDfuDownload(handle, image.c_str(), nullptr, nullptr, 0); }},
      {"a mark without name", pbErrArgument, [&] { return pcRegisterVolatile(nullptr, kPen); }},
      {"a mark that is not there", pbErrNoMark, [&] { return pcUnRegisterVolatile("Install", kPen); }},
  };
  for (const auto& row : rows) EXPECT_EQ(row.call(), row.error) << row.name;
  EXPECT_EQ(pens.Contents(kPen), before);
  EXPECT_EQ(pcStopObex(channel), 0);
}

TEST_F(PenFunctions, GiveEveryErrorItsText) {
  std::set<std::string> texts;
#define CHECK_TEXT(name, number, text) EXPECT_TRUE(texts.insert(pbErrorText(number)).second) << #name;
  PB_ERRORS(CHECK_TEXT)
#undef CHECK_TEXT
  EXPECT_STREQ(pbErrorText(0), "");
  EXPECT_STREQ(pbErrorText(1), "unknown error");
}

struct Image {
  const char* version;
  bool good;
};
class FirmwareImages : public PenOnDesk, public testing::WithParamInterface<Image> {};

TEST_P(FirmwareImages, AreTakenOnlyWithAVersionThatThePenCanTell) {
  ASSERT_EQ(pcDfuDetach(handle, 0, 0), 0);
  ASSERT_TRUE(LeaveAndReturn());
  EXPECT_EQ(Download(FirmwareContent(GetParam().version)), GetParam().good ? 0 : int32_t{pbErrNotFirmware});
}
INSTANTIATE_TEST_SUITE_P(Versions, FirmwareImages,
                         testing::Values(Image{"8.9.15.b2", true}, Image{"0.0.0.a", true}, Image{"8.9.15", false},
                                         Image{"8.9.100.b", false}, Image{"-1.9.1.b", false}, Image{"8..1.b", false},
                                         Image{"8.9.15.", false}, Image{"", false}),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

class PenLibrary : public testing::Test {};

// The pen library's nineteen functions, the control functions, and nothing of what they are made of.
TEST_F(PenLibrary, ExportsItsFunctionsAlone) {
  const std::unique_ptr<FILE, int (*)(FILE*)> program(popen("nm -D --defined-only " PEN_LIBRARY, "r"), pclose);
  ASSERT_TRUE(program);
  char name[256];
  int penFunctions = 0;
  while (fscanf(program.get(), "%*s %*s %255s", name) == 1) {
    const std::string text = name;
    penFunctions += text.starts_with("pc");
    EXPECT_TRUE(text.starts_with("pc") || text.starts_with("pb")) << text;
  }
  EXPECT_EQ(penFunctions, 19);
}
