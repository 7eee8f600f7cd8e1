// Loading: the folder, the manifests, and what is left of a bundle whose manifests are faulty.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "authoring/Files.h"
#include "installer/bundle/Bundle.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestLog.h"

namespace {

// One application in one group.
TestBundleOptions OneApp() {
  TestGroup group{.name = "Games", .version = "1.0"};
  group.packages = {PenAppPackage("chess", "Chess", "1.2")};
  return {.description = "Tests", .groups = {group}};
}

// A bundle whose manifest's group list is this text, loaded.
struct Loaded {
  explicit Loaded(const std::string& groupList)
      : file(
            {.editUpdateXml = [&](std::string& xml) { xml = "<ANY><GroupList>" + groupList + "</GroupList></ANY>"; }}) {
    result = bundle.Load(file.path().c_str());
  }
  const BundleGroup& group() const { return bundle.groups().at(0); }
  const BundlePackage& package() const { return group().packages.at(0); }

  TestBundle file;
  CBundle bundle;
  InsResCode result;
};

using Texts = std::vector<std::string>;

template <class Record>
Texts Attributes(const Record& record) {
  Texts texts;
  for (uint32_t i = 0; i < record.attribCount; ++i) {
    texts.push_back(std::to_string(record.attribs[i].id) + "=" + record.attribs[i].value);
  }
  return texts;
}

}  // namespace

TEST(Loading, NamesTheFolderForSizeAndTimeAndUsesItAgain) {
  TestBundle file(OneApp());
  const auto size = std::filesystem::file_size(file.path());
  authoring::SetModificationTime(file.path(), 1200000000 + static_cast<int64_t>(size));
  CBundle first;
  ASSERT_EQ(first.Load(file.path().c_str()), insSuccess);
  EXPECT_EQ(first.extractFolder(),
            "/tmp/" + std::to_string(size) + "_" + std::to_string((1200000000 + size) * 4294967296));
  EXPECT_EQ(first.bundleFile(), file.path());
  EXPECT_EQ(first.description(), "Tests");

  const auto written = std::filesystem::last_write_time(first.extractFolder() + "/Files");
  CBundle second;
  ASSERT_EQ(second.Load(file.path().c_str()), insSuccess);
  EXPECT_EQ(second.extractFolder(), first.extractFolder());
  EXPECT_EQ(std::filesystem::last_write_time(first.extractFolder() + "/Files"), written);

  // Whether a file was just written or found there, its size is known.
  for (const CBundle* bundle : {&first, &second}) {
    const BundlePackage& package = bundle->groups().at(0).packages.at(0);
    EXPECT_EQ(package.fileSize, std::filesystem::file_size(package.localPath));
  }
}

TEST(Loading, ReadsWhatAGroupSays) {
  Loaded loaded(
      "<G><Name>N</Name><Description>D</Description><Category>C</Category><Version>1.2</Version><Locale>sv</Locale>"
      "<Folder>Apps</Folder><System>True</System><Locked>1</Locked><Private>TRUE</Private><PenTypes>3, 1,x</PenTypes>"
      "<FileList/></G>");
  ASSERT_EQ(loaded.result, insSuccess);
  const BundleGroup& group = loaded.group();
  EXPECT_EQ((Texts{group.name, group.description, group.category, group.version, group.locale, group.folder}),
            (Texts{"N", "D", "C", "1.2", "sv", "Apps"}));
  EXPECT_TRUE(group.isSystem);
  EXPECT_FALSE(group.isLocked);
  EXPECT_TRUE(group.isPrivate);
  EXPECT_EQ(group.penTypes, (std::vector<int32_t>{3, 1, 0}));
  EXPECT_EQ(Attributes(group), (Texts{"5=true", "4=false", "2=N", "3=1.2", "1=C"}));
}

TEST(Loading, ReadsWhatAPackageSays) {
  Loaded loaded(
      "<G><Folder></Folder><FileList><P><Name>N</Name><FileName>sub\\a.bin</FileName><GUID>g</GUID>"
      "<Version>2</Version><FileType>PenApp</FileType><Action>install</Action><TransferOrder>12abc</TransferOrder>"
      "<BuildNumber>99999999999</BuildNumber><Properties><A name=\"n\" value=\"v &amp; w\"/><B value=\"dropped\"/>"
      "<C name=\"only\"/></Properties></P></FileList></G>");
  ASSERT_EQ(loaded.result, insSuccess);
  const BundlePackage& package = loaded.package();
  EXPECT_EQ((Texts{package.name, package.guid, package.version, package.fileType, package.action}),
            (Texts{"N", "g", "2", "PenApp", "install"}));
  EXPECT_EQ(package.bundlePath, "Files/sub\\a.bin");
  EXPECT_EQ(package.localPath, loaded.bundle.extractFolder() + "/Files/sub/a.bin");
  EXPECT_EQ(package.type, BndPakPenApp);
  EXPECT_EQ(package.transferOrder, 12);
  EXPECT_EQ(package.buildNumber, 2147483647);
  EXPECT_EQ(package.fileSize, 0);
  EXPECT_EQ(package.drmInfo, nullptr);
  EXPECT_EQ(package.group, &loaded.group());
  ASSERT_EQ(package.properties.size(), 2U);
  EXPECT_EQ(package.properties[0].name + package.properties[0].value, "nv & w");
  EXPECT_EQ(package.properties[1].name + package.properties[1].value, "only");
  EXPECT_EQ(Attributes(package), (Texts{"6=N", "7=2"}));
}

TEST(Loading, CutsAttributesToWhatAPenKeeps) {
  Loaded loaded("<G><Name>" + std::string(300, 'n') + "</Name><FileList/></G>");
  EXPECT_EQ(loaded.group().attribs[2].value, std::string(255, 'n'));
}

TEST(Loading, TellsKindsByTheExactText) {
  const std::pair<const char*, BndPakTypes> rows[] = {{"Firmware", BndPakFirmware},
                                                      {"PenApp", BndPakPenApp},
                                                      {"PaperProduct", BndPakPaperProduct},
                                                      {"firmware", BndPakUnknown},
                                                      {"Pen App", BndPakUnknown}};
  for (const auto& [text, type] : rows) {
    Loaded loaded(std::string("<G><FileList><P><FileType>") + text + "</FileType></P></FileList></G>");
    EXPECT_EQ(loaded.package().type, type) << text;
  }
}

TEST(Loading, SortsPackagesByTransferOrderAndKeepsTheRestInPlace) {
  Loaded loaded(
      "<G><FileList><P><Name>c</Name><TransferOrder>3</TransferOrder></P><P><Name>a</Name></P><P><Name>d</Name>"
      "<TransferOrder>3</TransferOrder></P><P><Name>b</Name><TransferOrder>1</TransferOrder></P></FileList></G>");
  std::string order;
  for (const BundlePackage& package : loaded.group().packages) order += package.name;
  EXPECT_EQ(order, "abcd");
}

TEST(Loading, KeepsAGroupWithoutFiles) {
  TestLog log;
  Loaded loaded("<G><Name>Empty</Name></G><G><Name>Next</Name><FileList><P/></FileList></G>");
  EXPECT_EQ(loaded.result, insSuccess);
  EXPECT_EQ(loaded.group().name, "Empty");
  EXPECT_EQ(loaded.bundle.groups().at(1).packages.size(), 1U);
  EXPECT_EQ(log.Lines(), Lines{"ParseGroup: Not found \"FileList\""});
}

TEST(Loading, RefusesBundlesWithoutTheirManifests) {
  const auto replace = [](const char* member, const char* text) {
    TestBundleOptions options = OneApp();
    options.replaceMembers[member] = text;
    return options;
  };
  const auto drop = [](const char* member) {
    TestBundleOptions options = OneApp();
    options.dropMembers = {member};
    return options;
  };
  const struct {
    const char* name;
    TestBundleOptions options;
    InsResCode result;
    const char* message;
  } rows[] = {
      {"no bom", drop("bom.xml"), insBadManifest, "LoadDRM: Not found BOM root element"},
      {"empty bom", replace("bom.xml", ""), insBadManifest, "LoadDRM: Not found BOM root element"},
      {"no update", drop("update.xml"), insBadManifest, "ParseBundle: Not found UPDATE root element"},
      {"text", replace("update.xml", "text"), insBadManifest, "ParseBundle: Not found UPDATE root element"},
      {"comment", replace("update.xml", "<?xml?><!-- a -->"), insBadManifest,
       "ParseBundle: Not found UPDATE root element"},
      {"no groups", replace("update.xml", "<UPDATE/>"), insBadManifest, "ParseBundle: Not found \"GroupList\""},
      {"bad subject", replace("bom.xml", "<B><F name=\"a.bin\" subject=\"&#9;cn=x\"/></B>"), insBadSubject,
       "LoadDRM: Unable to load signature of file a.bin"},
  };
  for (const auto& row : rows) {
    TestBundle file(row.options);
    TestLog log;
    CBundle bundle;
    EXPECT_EQ(bundle.Load(file.path().c_str()), row.result) << row.name;
    EXPECT_EQ(log.Lines(), Lines{row.message}) << row.name;
  }
}

TEST(Loading, AcceptsAnEmptySubjectWhereverItStands) {
  const std::string entries[] = {"<F name=\"a\"/>", "<F name=\"b\" subject=\"\"/>"};
  for (const bool isSwapped : {false, true}) {
    TestBundleOptions options = OneApp();
    options.replaceMembers["bom.xml"] = "<B>" + entries[isSwapped] + entries[!isSwapped] + "</B>";
    TestBundle file(options);
    CBundle bundle;
    EXPECT_EQ(bundle.Load(file.path().c_str()), insSuccess) << isSwapped;
    ASSERT_NE(bundle.GetDRMInfo("b"), nullptr);
    EXPECT_EQ(bundle.GetDRMInfo("a")->subject, nullptr);
  }
}

TEST(Loading, RefusesManifestsBeyondTheirBoundAndReadsNothingAfterABadOne) {
  const std::string huge((256U << 20) + 1, ' ');
  for (const std::string name : {"bom.xml", "update.xml"}) {
    TestBundleOptions options = OneApp();
    options.replaceMembers[name] = huge;
    TestBundle file(options);
    TestLog log;
    CBundle bundle;
    EXPECT_EQ(bundle.Load(file.path().c_str()), insBadManifest);
    EXPECT_EQ(log.Lines(), Lines{(name == "bom.xml" ? "LoadDRM: File " : "ParseBundle: File ") + name +
                                 " is too large: 268435457 bytes, at most 268435456 are read"});
  }
  // The signature manifest comes first: what follows a bad one is not opened, however bad it is itself.
  TestBundleOptions options = OneApp();
  options.dropMembers = {"bom.xml"};
  options.replaceMembers["update.xml"] = huge;
  TestBundle file(options);
  TestLog log;
  CBundle bundle;
  EXPECT_EQ(bundle.Load(file.path().c_str()), insBadManifest);
  EXPECT_EQ(log.Lines(), Lines{"LoadDRM: Not found BOM root element"});
}

// A run is followed in the log by its thread, whichever threads did the work.
TEST(Loading, LogsOnTheCallersThreadInTheManifestsOrder) {
  std::string groups;
  Lines expected;
  for (int i = 0; i < 60; ++i) {
    const std::string name = "../../x" + std::to_string(i);
    groups += "<G><FileList><P><FileName>" + name + "</FileName></P></FileList></G><G/>";
    expected.push_back("ParsePackage: Package Files/" + name + " leads out of the bundle and is not opened");
    expected.push_back("ParseGroup: Not found \"FileList\"");
  }
  TestLog log;
  Loaded loaded(groups);
  EXPECT_EQ(loaded.result, insSuccess);
  EXPECT_EQ(log.Lines(), expected);
  g_Logger.LogEvent("Here", "%s", "");
  EXPECT_EQ(log.Threads().size(), 1U);
}

TEST(Loading, SaysWhichFileCannotBeLoaded) {
  TempFolder folder;
  TestLog log;
  CBundle bundle;
  EXPECT_EQ(bundle.Load((folder / "none.zip").c_str()), insFileNotFound);
  EXPECT_EQ(bundle.Load(nullptr), insFileNotFound);
  const std::string text = folder.Write("text.zip", "no archive");
  SetUniqueModificationTime(text);
  EXPECT_EQ(bundle.Load(text.c_str()), insExtractFailed);
  const std::string extracted = authoring::ExtractionFolder(text).string();
  EXPECT_EQ(log.Lines(), (Lines{"Load: Cannot open " + (folder / "none.zip") + " file", "Load: Cannot open  file",
                                "ExtractZip: Cannot open file zip " + text,
                                "Load: Extracting " + text + " to " + extracted + " failed. ZipErr=-1"}));
  std::filesystem::remove_all(extracted);
}

TEST(Loading, FindsSignaturesByFolderAndName) {
  const auto entry = [](const char* attributes) { return std::string("<F ") + attributes + "/>"; };
  TestBundleOptions options = OneApp();
  options.editBomXml = [&](std::string& xml) {
    xml = "<BOM>" + entry("name='A.BIN' folder='Files' signature='1'") +
          entry("name='b.bin' folder='/' signature='2'") + entry("name='c.bin' folder='\\' signature='3'") +
          entry("name='d.bin' folder='x//y\\\\z\\w/' signature='4'") + entry("folder='Files' signature='lost'") +
          entry("name='b.bin' signature='5'") + entry("name='e.bin'") + "</BOM>";
    std::replace(xml.begin(), xml.end(), '\'', '"');
  };
  TestBundle file(options);
  CBundle bundle;
  ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
  const std::pair<const char*, const char*> rows[] = {
      {"Files/a.bin", "1"}, {"FILES/A.bin", "1"},    {"a.bin", nullptr},  {"Any/b.bin", "5"},
      {"any\\C.bin", "3"},  {"x/y/z\\w/d.bin", "4"}, {"Files/e.bin", ""}, {"Files/", nullptr}};
  for (const auto& [path, signature] : rows) {
    const BundleFileDRMInfo* info = bundle.GetDRMInfo(path);
    EXPECT_EQ(info ? info->signature : "none", signature ? signature : "none") << path;
  }
}
