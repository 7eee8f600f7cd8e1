#include "tests/support/TestBundle.h"

#include <sys/stat.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "authoring/BomWriter.h"
#include "authoring/Files.h"
#include "authoring/Signing.h"
#include "authoring/ZipWriter.h"

namespace {

using authoring::EscapeXml;

std::string Element(const std::string& name, const std::string& text) {
  return text.empty() ? std::string() : fmt::format("<{0}>{1}</{0}>", name, EscapeXml(text));
}

std::string PackageXml(const TestPackage& package) {
  std::string xml = "   <Package>" + Element("Name", package.name) + Element("FileName", package.fileName) +
                    Element("GUID", package.guid) + Element("Version", package.version) +
                    Element("FileType", package.fileType) + Element("Action", package.action) +
                    Element("TransferOrder", package.transferOrder) + Element("BuildNumber", package.buildNumber);
  if (!package.properties.empty()) {
    xml += "<Properties>";
    for (const auto& [name, value] : package.properties) {
      xml += fmt::format("<Property name=\"{}\" value=\"{}\"/>", EscapeXml(name), EscapeXml(value));
    }
    xml += "</Properties>";
  }
  return xml + "</Package>\n";
}

std::string GroupXml(const TestGroup& group) {
  std::string xml = "  <Group>" + Element("Name", group.name) + Element("Description", group.description) +
                    Element("Category", group.category) + Element("Version", group.version) +
                    Element("Locale", group.locale) + Element("Folder", group.folder) +
                    Element("System", group.system) + Element("Locked", group.locked) +
                    Element("Private", group.privateGroup) + Element("PenTypes", group.penTypes) + "\n   <FileList>\n";
  for (const TestPackage& package : group.packages) xml += PackageXml(package);
  return xml + "   </FileList></Group>\n";
}

// The members of the archive and the signature manifest's entries for them.
class Contents {
 public:
  explicit Contents(const TestBundleOptions& options) : m_options(options) {}

  std::map<std::string, std::string> Members() {
    Add("update.xml", "", "update.xml", TestUpdateXml(m_options));
    for (const TestGroup& group : m_options.groups) {
      std::string folder = group.folder.empty() ? "Files" : group.folder;
      for (const TestPackage& package : group.packages) {
        if (package.fileName.empty()) continue;
        std::string member = folder + "/" + package.fileName;
        std::replace(member.begin(), member.end(), '\\', '/');
        Add(member, folder, package.fileName, package.content);
      }
    }
    m_members["bom.xml"] = Bom();
    for (const auto& [member, content] : m_options.replaceMembers) m_members[member] = content;
    for (const std::string& member : m_options.dropMembers) m_members.erase(member);
    return std::move(m_members);
  }

 private:
  void Add(const std::string& member, const std::string& folder, const std::string& name, const std::string& content) {
    const TestIdentity* identity = m_options.signer ? m_options.signer : &MakeTestIdentity();
    if (auto own = m_options.signerOf.find(member); own != m_options.signerOf.end()) identity = own->second;
    authoring::Signer signer = authoring::Signer::FromPem(
        identity->keyPem, authoring::Certificate::FromPem(identity->certPem, "the test's certificate"));
    m_entries.push_back({name, folder, identity->subject, signer.SignBytes(content)});
    m_members[member] = content;
  }

  std::string Bom() const {
    std::string text = authoring::WriteBom(m_entries);
    if (m_options.editBomXml) m_options.editBomXml(text);
    return text;
  }

  const TestBundleOptions& m_options;
  std::map<std::string, std::string> m_members;
  std::vector<authoring::BomEntry> m_entries;
};

TestPackage PenPackage(const std::string& fileType, const std::string& kind, const std::string& guid,
                       const std::string& name, const std::string& version, int build, int transferOrder) {
  TestPackage package;
  package.name = name;
  package.fileName = guid + ".pen";
  package.guid = guid;
  package.version = version;
  package.fileType = fileType;
  package.buildNumber = std::to_string(build);
  package.transferOrder = std::to_string(transferOrder);
  package.content = PenAppContent(guid, version, build, name, kind);
  return package;
}

}  // namespace

TestBundle::TestBundle(const TestBundleOptions& options) : m_path(m_folder / "bundle.zip") {
  authoring::ZipWriter zip(m_path);
  for (const auto& [member, content] : Contents(options).Members()) zip.AddBytes(member, content);
  zip.Close();
  SetUniqueModificationTime(m_path);
}

TestBundle::~TestBundle() {
  std::error_code ignored;
  std::filesystem::remove_all(extractFolder(), ignored);
}

std::string TestBundle::extractFolder() const {
  return authoring::ExtractionFolder(m_path).string();
}

bool MakeTwins(const TestBundle& one, const TestBundle& other) {
  const bool isFirstSmaller = std::filesystem::file_size(one.path()) < std::filesystem::file_size(other.path());
  const std::string& small = isFirstSmaller ? one.path() : other.path();
  const std::string& large = isFirstSmaller ? other.path() : one.path();
  std::string bytes = authoring::ReadFile(small);
  const auto comment = static_cast<size_t>(std::filesystem::file_size(large)) - bytes.size();
  bytes[bytes.size() - 2] = static_cast<char>(comment & 0xff);
  bytes[bytes.size() - 1] = static_cast<char>(comment >> 8);
  authoring::WriteFile(small, bytes + std::string(comment, 'c'));
  struct stat status {};
  if (stat(large.c_str(), &status) != 0) return false;
  authoring::SetModificationTime(small, status.st_mtime);
  return one.extractFolder() == other.extractFolder();
}

std::string TestUpdateXml(const TestBundleOptions& options) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<UPDATE>" + Element("Description", options.description);
  xml += "\n <GroupList>\n";
  for (const TestGroup& group : options.groups) xml += GroupXml(group);
  xml += " </GroupList>\n</UPDATE>\n";
  if (options.editUpdateXml) options.editUpdateXml(xml);
  return xml;
}

void SetUniqueModificationTime(const std::string& path) {
  thread_local std::mt19937 random{std::random_device{}()};
  authoring::SetModificationTime(path, static_cast<int64_t>(random() >> 1));
}

std::string PenAppContent(const std::string& guid, const std::string& version, int build, const std::string& name,
                          const std::string& kind, const std::string& payload) {
  return fmt::format("TESSVIK-APP 1\nguid: {}\nversion: {}\nbuild: {}\nkind: {}\nname: {}\n\n{}", guid, version, build,
                     kind, name, payload);
}

std::string FirmwareContent(const std::string& version, const std::string& payload) {
  return fmt::format("TESSVIK-FIRMWARE 1\nversion: {}\n\n{}", version, payload);
}

TestPackage PenAppPackage(const std::string& guid, const std::string& name, const std::string& version, int build,
                          int transferOrder) {
  return PenPackage("PenApp", "app", guid, name, version, build, transferOrder);
}

TestPackage PaperPackage(const std::string& guid, const std::string& name, const std::string& version, int build,
                         int transferOrder) {
  return PenPackage("PaperProduct", "paper", guid, name, version, build, transferOrder);
}

TestPackage FirmwarePackage(const std::string& version, int transferOrder) {
  TestPackage package;
  package.name = "Firmware " + version;
  package.fileName = "firmware-" + version + ".bin";
  package.guid = "fw-" + version;
  package.version = version;
  package.fileType = "Firmware";
  package.transferOrder = std::to_string(transferOrder);
  package.content = FirmwareContent(version);
  return package;
}
