// Real signed bundles for tests: a zip file in a folder of its own, with the manifest, the signatures and the package
// files that the options describe. The file gets a modification time that no other bundle has, because the library
// extracts into a folder named for size and time, and tests run side by side. File and extraction folder go with the
// object.
#ifndef QUARVEL_TESTS_SUPPORT_TESTBUNDLE_H
#define QUARVEL_TESTS_SUPPORT_TESTBUNDLE_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TempFolder.h"
#include "tests/support/TestKeys.h"

// One package of the manifest. An element whose text is empty here is left out.
struct TestPackage {
  std::string name{};
  std::string fileName{};
  std::string guid{};
  std::string version{};
  std::string fileType{};  // "Firmware", "PenApp", "PaperProduct" or anything
  std::string action{};
  std::string transferOrder{};
  std::string buildNumber{};
  std::vector<std::pair<std::string, std::string>> properties{};
  std::string content{};  // of the file; stored under the group's folder
};

struct TestGroup {
  std::string name{};
  std::string version{};
  std::string penTypes = "0";
  std::string folder{};  // left out of the manifest when empty: the files are then in "Files"
  std::string description{};
  std::string category{};
  std::string locale{};
  std::string system{};
  std::string locked{};
  std::string privateGroup{};
  std::vector<TestPackage> packages{};
};

struct TestBundleOptions {
  std::string description{};
  std::vector<TestGroup> groups{};

  // Who signs everything; null stands for MakeTestIdentity().
  const TestIdentity* signer = nullptr;
  // Signers of single files, by member name ("update.xml", "Files/a.bin").
  std::map<std::string, const TestIdentity*> signerOf{};

  // Changes the manifest's text before it is signed, the signature manifest's text before it is stored.
  std::function<void(std::string&)> editUpdateXml{};
  std::function<void(std::string&)> editBomXml{};

  // After signing: further members (or other content for existing ones), and members left out. By member name.
  std::map<std::string, std::string> replaceMembers{};
  std::vector<std::string> dropMembers{};
};

class TestBundle {
 public:
  explicit TestBundle(const TestBundleOptions& options);
  ~TestBundle();
  TestBundle(const TestBundle&) = delete;
  TestBundle& operator=(const TestBundle&) = delete;

  const std::string& path() const { return m_path; }
  // Where the library extracts it.
  std::string extractFolder() const;

 private:
  TempFolder m_folder;
  std::string m_path;
};

// Makes the two files map to one extraction folder: the smaller gets a comment at its end, and both have one time.
bool MakeTwins(const TestBundle& one, const TestBundle& other);

// The manifest's text that a bundle of these options carries.
std::string TestUpdateXml(const TestBundleOptions& options);

// Sets a modification time that no other file of the run has.
void SetUniqueModificationTime(const std::string& path);

// Files as a simulated pen takes them.
std::string PenAppContent(const std::string& guid, const std::string& version, int build = 0,
                          const std::string& name = "", const std::string& kind = "app",
                          const std::string& payload = "payload");
std::string FirmwareContent(const std::string& version, const std::string& payload = "payload");

// Packages with such files; file names are made from the GUID or the version.
TestPackage PenAppPackage(const std::string& guid, const std::string& name, const std::string& version, int build = 0,
                          int transferOrder = 0);
TestPackage PaperPackage(const std::string& guid, const std::string& name, const std::string& version, int build = 0,
                         int transferOrder = 0);
TestPackage FirmwarePackage(const std::string& version, int transferOrder = 0);

#endif
