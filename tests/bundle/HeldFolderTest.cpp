// A loaded bundle holds its folder: nobody else's bundle takes its files' places, whoever else shares the folder's
// name, and what is verified is what was parsed and what is sent.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "authoring/Files.h"
#include "authoring/ZipWriter.h"
#include "installer/bundle/Bundle.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TestBundle.h"
#include "tests/support/TestLog.h"

namespace {

namespace fs = std::filesystem;

const TestIdentity& Stranger() {
  return MakeTestIdentity("/C=SE/O=Forgers/CN=Bundle Signer", 1);
}

TestBundleOptions App(const std::string& groupVersion, const std::string& content, const TestIdentity& signer) {
  TestGroup group{.name = "Apps", .version = groupVersion};
  group.packages.push_back({.name = "app", .fileName = "app.pen", .content = content});
  return {.groups = {group}, .signer = &signer};
}

InsResCode VerifyAsTrusted(CBundle& bundle) {
  const char* const certificate = MakeTestIdentity().certPem.c_str();
  return bundle.Verify(&certificate, 1);
}

InsResCode InAnotherProcess(const std::function<InsResCode()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(-work());
  int status = 0;
  waitpid(child, &status, 0);
  return -WEXITSTATUS(status);
}

BundlePackage& FirstPackage(CBundle& bundle) {
  return const_cast<BundlePackage&>(bundle.groups().at(0).packages.at(0));
}

std::string Joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// A genuine bundle and a forged one whose files have other sizes, both for the same folder.
struct Twins {
  Twins() { EXPECT_TRUE(MakeTwins(genuine, forged)); }
  TestBundle genuine{App("1.0", "the genuine content", MakeTestIdentity())};
  TestBundle forged{App("99.0", "something else altogether", Stranger())};
};

}  // namespace

TEST(HeldFolder, KeepsItsFilesFromAnotherBundleOfTheSameSizeAndTime) {
  Twins twins;
  CBundle genuine;
  ASSERT_EQ(genuine.Load(twins.genuine.path().c_str()), insSuccess);
  TestLog log;
  const auto loadForged = [&] {
    CBundle forged;
    return forged.Load(twins.forged.path().c_str());
  };
  EXPECT_EQ(loadForged(), insExtractFailed);
  EXPECT_EQ(InAnotherProcess(loadForged), insExtractFailed);
  const std::string folder = genuine.extractFolder();
  const std::string reason =
      "Folder " + folder + " is in use: its files come from " + twins.genuine.path() + ", which is still loaded";
  const std::string said = Joined(log.Lines());
  EXPECT_NE(said.find("ExtractZip: Cannot replace file " + folder + "/Files/app.pen. " + reason), std::string::npos)
      << said;
  EXPECT_NE(said.find("failed. ZipErr=-109"), std::string::npos) << said;
  EXPECT_EQ(VerifyAsTrusted(genuine), insSuccess);
  EXPECT_EQ(ReadWholeFile(FirstPackage(genuine).localPath), "the genuine content");
}

TEST(HeldFolder, IsFreeForAnotherBundleOnceItIsReleased) {
  Twins twins;
  {
    CBundle forged;
    ASSERT_EQ(forged.Load(twins.forged.path().c_str()), insSuccess);
  }
  TestLog log;
  CBundle genuine;
  ASSERT_EQ(genuine.Load(twins.genuine.path().c_str()), insSuccess);
  EXPECT_EQ(VerifyAsTrusted(genuine), insSuccess);
  EXPECT_EQ(log.Lines(), Lines{"Load: Folder " + genuine.extractFolder() + " was filled from " + twins.forged.path() +
                               " before. Remove the folder if a signature is invalid."});
}

TEST(HeldFolder, IsRepairedForTheVeryFileThatOthersLoadedToo) {
  TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
  CBundle first;
  ASSERT_EQ(first.Load(file.path().c_str()), insSuccess);
  const std::string path = FirstPackage(first).localPath;
  const auto reload = [&] {
    CBundle bundle;
    return bundle.Load(file.path().c_str());
  };
  fs::resize_file(path, 3);
  EXPECT_EQ(VerifyAsTrusted(first), insBadSignature);
  EXPECT_EQ(reload(), insSuccess);
  EXPECT_EQ(VerifyAsTrusted(first), insSuccess);
  fs::resize_file(path, 3);
  EXPECT_EQ(InAnotherProcess(reload), insSuccess);
  EXPECT_EQ(VerifyAsTrusted(first), insSuccess);

  // While it is held still, not even that.
  CSharedFolder::Hold hold;
  ASSERT_EQ(first.HoldForTransfer(FirstPackage(first), nullptr, hold), insSuccess);
  EXPECT_EQ(reload(), insSuccess) << "nothing is to be replaced";
  fs::resize_file(path, 3);
  TestLog log;
  EXPECT_EQ(reload(), insExtractFailed);
  EXPECT_NE(Joined(log.Lines()).find("a file from " + file.path() + " is being transferred"), std::string::npos);
  hold = {};
  EXPECT_EQ(reload(), insSuccess);
}

TEST(HeldFolder, WaitsForAReplacementThatHasBegun) {
  TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
  CBundle bundle;
  ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
  struct stat source {};
  ASSERT_EQ(stat(file.path().c_str(), &source), 0);
  CSharedFolder other;
  std::string fault;
  ASSERT_EQ(other.Open(bundle.extractFolder(), &fault), CSharedFolder::Opening::kOpen) << fault;
  ASSERT_EQ(other.Join(source, file.path()), "");
  ASSERT_EQ(other.BeginReplacing(), "");
  std::atomic<bool> isOver = false;
  std::jthread replacing([&] {
    usleep(120'000);
    isOver = true;
    other.EndReplacing();
  });
  CSharedFolder::Hold hold;
  EXPECT_EQ(bundle.HoldForTransfer(FirstPackage(bundle), nullptr, hold), insSuccess);
  EXPECT_TRUE(isOver);
}

TEST(HeldFolder, VerifiesTheManifestThatWasParsed) {
  // The forged manifest is parsed, then the genuine text takes its place on the disk: equally long, so that a load of
  // the genuine file finds nothing to do.
  TestBundle genuine(App("1.0", "the genuine content", MakeTestIdentity()));
  TestBundle forged(App("9.9", "the genuine content", Stranger()));
  ASSERT_TRUE(MakeTwins(genuine, forged));
  CBundle bundle;
  ASSERT_EQ(bundle.Load(forged.path().c_str()), insSuccess);
  ASSERT_EQ(bundle.groups()[0].version, "9.9");
  std::string update;
  std::string bom;
  ASSERT_EQ(CZip::ReadInternalFile(genuine.path().c_str(), "update.xml", update, nullptr), 0);
  authoring::WriteFile(bundle.extractFolder() + "/update.xml", update);
  const BundleFileDRMInfo* info = bundle.GetDRMInfo("update.xml");
  ASSERT_EQ(CZip::ReadInternalFile(genuine.path().c_str(), "bom.xml", bom, nullptr), 0);
  ASSERT_NE(info, nullptr);
  CBundle signer;
  const_cast<BundleFileDRMInfo*>(info)->subject = std::make_shared<CertSubject>();
  {
    // The genuine manifest's own record, as if it had been read in between.
    TestBundle again(App("1.0", "the genuine content", MakeTestIdentity()));
    ASSERT_EQ(signer.Load(again.path().c_str()), insSuccess);
    *const_cast<BundleFileDRMInfo*>(info) = *signer.GetDRMInfo("update.xml");
  }
  TestLog log;
  const char* const certificate = MakeTestIdentity().certPem.c_str();
  ASSERT_EQ(bundle.LoadVerifyingInfos(&certificate, 1), insSuccess);
  EXPECT_EQ(bundle.VerifyUpdateXML(), insBadSignature);
  EXPECT_EQ(log.Lines(), Lines{"VerifyUpdateXML: File update.xml has invalid signature"});
}

TEST(HeldFolder, IsNotReadThroughAnotherOfItsName) {
  for (const bool isMoved : {false, true}) {
    TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
    CBundle bundle;
    ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
    const std::string folder = bundle.extractFolder();
    const std::string copy = folder + "-copy";
    fs::copy(folder, copy, fs::copy_options::recursive);
    if (isMoved) {
      fs::rename(folder, folder + "-away");
    } else {
      fs::remove_all(folder);
    }
    fs::rename(copy, folder);
    TestLog log;
    EXPECT_EQ(VerifyAsTrusted(bundle), insFileNotFound);
    EXPECT_EQ(bundle.Verify(FirstPackage(bundle)), insFileNotFound);
    EXPECT_EQ(log.Lines(),
              (Lines{"VerifyUpdateXML: File update.xml not found", "Verify: File Files/app.pen not found"}));
    fs::remove_all(folder + "-away");
  }
}

TEST(HeldFolder, HandsOutForTransferOnlyWhatWasChecked) {
  const struct {
    const char* name;
    std::function<void(const std::string& path)> change;
    InsResCode result;
    InsResCode unsignedResult;  // of a package that the host takes although it failed its check
  } rows[] = {
      {"untouched", [](const std::string&) {}, insSuccess, insSuccess},
      {"rewritten", [](const std::string& path) { authoring::WriteFile(path, "the genuine c0ntent"); },
       insPackageUnsigned, insSuccess},
      {"gone", [](const std::string& path) { fs::remove(path); }, insPackageUnsigned, insPackageUnsigned},
      {"a link to the same bytes",
       [](const std::string& path) {
         fs::rename(path, path + "2");
         fs::create_symlink(path + "2", path);
       },
       insPackageUnsigned, insSuccess},
      {"below another folder",
       [](const std::string& path) {
         const fs::path folder = fs::path(path).parent_path().parent_path();
         fs::rename(folder, folder.string() + "-away");
         fs::copy(folder.string() + "-away", folder, fs::copy_options::recursive);
       },
       insPackageUnsigned, insPackageUnsigned},
  };
  const char* const certificate = MakeTestIdentity().certPem.c_str();
  for (const auto& row : rows) {
    TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
    CBundle bundle;
    ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
    ASSERT_EQ(bundle.LoadVerifyingInfos(&certificate, 1), insSuccess);
    const CBundle::Certificates certificates = bundle.GetVerifyingInfos();
    BundlePackage& package = FirstPackage(bundle);
    ASSERT_EQ(bundle.Verify(package, *certificates), insSuccess);
    row.change(package.localPath);
    CSharedFolder::Hold hold;
    EXPECT_EQ(bundle.HoldForTransfer(package, certificates.get(), hold), row.result) << row.name;
    EXPECT_EQ(bundle.HoldForTransfer(package, nullptr, hold), row.unsignedResult) << row.name;
    fs::remove_all(bundle.extractFolder() + "-away");
  }
}

TEST(HeldFolder, HandsOutNothingWhileItsFilesAreReplaced) {
  FakeClock clock;
  TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
  CBundle bundle;
  ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
  CSharedFolder replaced;
  std::string fault;
  struct stat source {};
  ASSERT_EQ(stat(file.path().c_str(), &source), 0);
  ASSERT_EQ(replaced.Open(bundle.extractFolder(), &fault), CSharedFolder::Opening::kOpen);
  ASSERT_EQ(replaced.Join(source, file.path()), "");
  ASSERT_EQ(replaced.BeginReplacing(), "");
  TestLog log;
  CSharedFolder::Hold hold;
  EXPECT_EQ(bundle.HoldForTransfer(FirstPackage(bundle), nullptr, hold), insPackageUnsigned);
  EXPECT_EQ(log.Lines(), Lines{"HoldForTransfer: Folder " + bundle.extractFolder() + " is being replaced"});
  replaced.EndReplacing();
  EXPECT_EQ(bundle.HoldForTransfer(FirstPackage(bundle), nullptr, hold), insSuccess);
}

TEST(HeldFolder, KeepsTheCertificatesThatARunBeganWith) {
  TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
  CBundle bundle;
  ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
  ASSERT_EQ(VerifyAsTrusted(bundle), insSuccess);
  const CBundle::Certificates kept = bundle.GetVerifyingInfos();
  const char* const other = Stranger().certPem.c_str();
  EXPECT_EQ(bundle.Verify(&other, 1), insNoCertificate);
  EXPECT_EQ(bundle.Verify(FirstPackage(bundle)), insNoCertificate);
  EXPECT_EQ(bundle.Verify(FirstPackage(bundle), *kept), insSuccess);
}

TEST(HeldFolder, UnpacksOneOfTheMembersThatShareAFile) {
  const struct {
    std::vector<std::string> contents;
    const char* counts;
  } rows[] = {{{"one", "two"}, "one"}, {{"one", "three"}, "three"}, {{"three", "one", "two", "six"}, "one"}};
  for (const auto& row : rows) {
    TempFolder folder;
    authoring::ZipWriter zip(folder / "a.zip");
    const char* const names[] = {"d/f", "./d/f", "d//f", "d/./f"};
    for (size_t i = 0; i < row.contents.size(); ++i) zip.AddBytes(names[i], row.contents[i]);
    zip.Close();
    const std::string out = folder / "out";
    ASSERT_EQ(CZip::ExtractZip((folder / "a.zip").c_str(), out.c_str(), true, nullptr), 0);
    EXPECT_EQ(ReadWholeFile(out + "/d/f"), row.counts);
    struct stat before {};
    struct stat after {};
    stat((out + "/d/f").c_str(), &before);
    ASSERT_EQ(CZip::ExtractZip((folder / "a.zip").c_str(), out.c_str(), true, nullptr), 0);
    stat((out + "/d/f").c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino) << "written again";
    ASSERT_EQ(CZip::ExtractZip((folder / "a.zip").c_str(), out.c_str(), false, nullptr), 0);
    EXPECT_EQ(ReadWholeFile(out + "/d/f"), row.contents.back()) << "each overwrites the one before";
  }
}

TEST(HeldFolder, LeavesOutAMemberNamedLikeItsLock) {
  TestBundleOptions options = App("1.0", "the genuine content", MakeTestIdentity());
  options.replaceMembers[".quarvel-lock"] = "not a lock";
  TestBundle file(options);
  for (int load = 0; load < 2; ++load) {
    CBundle bundle;
    TestLog log;
    ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
    EXPECT_EQ(VerifyAsTrusted(bundle), insSuccess);
    EXPECT_EQ(log.Lines(),
              Lines{"ExtractZip: Member .quarvel-lock of zip " + file.path() + " has a reserved name and is left out"});
  }
}

TEST(HeldFolder, NeverOpensAPackageThatLeadsOut) {
  TempFolder elsewhere;
  elsewhere.Write("secret", "the genuine content");
  const std::string outside = "../../.." + elsewhere.path().string();
  const struct {
    std::string folder;
    std::string fileName;
    bool isOpened;
  } rows[] = {{outside, "secret", false},
              {"Files", "../" + outside + "/secret", false},
              {"Files", "..\\..\\x", false},
              {"Files", "../Files/app.pen", true},
              {"/Files", "app.pen", true}};
  for (const auto& row : rows) {
    TestBundleOptions options = App("1.0", "the genuine content", MakeTestIdentity());
    options.editUpdateXml = [&](std::string& xml) {
      xml = "<U><GroupList><G><Folder>" + row.folder + "</Folder><FileList><P><FileName>" + row.fileName +
            "</FileName></P></FileList></G></GroupList></U>";
    };
    options.editBomXml = [](std::string& xml) { xml.replace(xml.find(" folder=\"Files\""), 15, ""); };
    TestBundle file(options);
    CBundle bundle;
    TestLog log;
    ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
    BundlePackage& package = FirstPackage(bundle);
    EXPECT_EQ(package.fileSize, row.isOpened ? 19 : 0) << row.fileName;
    CSharedFolder::Hold hold;
    EXPECT_EQ(bundle.HoldForTransfer(package, nullptr, hold) == insSuccess, row.isOpened) << "also when not verified";
    if (!row.isOpened) {
      EXPECT_EQ(log.Lines().at(0),
                "ParsePackage: Package " + package.bundlePath + " leads out of the bundle and is not opened");
      EXPECT_EQ(VerifyAsTrusted(bundle), insFileNotFound) << row.fileName;
    }
  }
}

TEST(HeldFolder, LeavesNoDescriptorToTheHostsChildren) {
  TestBundle file(App("1.0", "the genuine content", MakeTestIdentity()));
  CBundle bundle;
  ASSERT_EQ(bundle.Load(file.path().c_str()), insSuccess);
  int held = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (!fs::read_symlink(entry, gone).string().starts_with(bundle.extractFolder())) continue;
    ++held;
    EXPECT_NE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(held, 2) << "the folder and its lock";
}

// Two files of the same sizes and two processes: whichever unpacked first, nobody takes a forged manifest for a good
// one.
TEST(HeldFolder, TellsForgedFromGenuineWhoeverComesFirst) {
  for (int round = 0; round < 20; ++round) {
    TestBundle genuine(App("1.0", "the genuine content", MakeTestIdentity()));
    TestBundle forged(App("9.9", "the genuine content", Stranger()));
    ASSERT_TRUE(MakeTwins(genuine, forged));
    const auto isFooled = [](const TestBundle& file) {
      CBundle bundle;
      if (bundle.Load(file.path().c_str()) != insSuccess) return false;
      return VerifyAsTrusted(bundle) == insSuccess && bundle.groups().at(0).version != "1.0";
    };
    const pid_t child = fork();
    if (child == 0) _exit(isFooled(forged) ? 1 : 0);
    EXPECT_FALSE(isFooled(genuine));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << round;
  }
}
