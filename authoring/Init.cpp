#include "authoring/Init.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <vector>

#include "authoring/BomWriter.h"
#include "authoring/Failure.h"
#include "authoring/Files.h"
#include "authoring/Manifest.h"

namespace authoring {

namespace fs = std::filesystem;

namespace {

constexpr size_t kLongestGuid = 15;
constexpr int kOrderStep = 10;  // leaves room for packages in between

// The files of each subfolder, by its name.
std::map<std::string, std::vector<std::string>> FindFiles(const fs::path& root) {
  std::map<std::string, std::vector<std::string>> folders;
  std::error_code ignored;
  for (const fs::directory_entry& folder : fs::directory_iterator(root, ignored)) {
    if (!folder.is_directory(ignored)) continue;
    for (const fs::directory_entry& file : fs::directory_iterator(folder, ignored)) {
      std::string name = file.path().filename();
      if (!name.starts_with('.') && file.is_regular_file(ignored)) folders[folder.path().filename()].push_back(name);
    }
  }
  for (auto& [folder, files] : folders) std::sort(files.begin(), files.end());
  return folders;
}

std::string PackageText(const std::string& fileName, int order) {
  std::string stem = fs::path(fileName).stem();
  return fmt::format(
      "        <Package>\n"
      "          <Name>{0}</Name>\n"
      "          <FileName>{1}</FileName>\n"
      "          <GUID>{2}</GUID>\n"
      "          <Version>1.0</Version>\n"
      "          <BuildNumber>1</BuildNumber>\n"
      "          <FileType>PenApp</FileType>\n"
      "          <TransferOrder>{3}</TransferOrder>\n"
      "        </Package>\n",
      EscapeXml(stem), EscapeXml(fileName), EscapeXml(stem.substr(0, kLongestGuid)), order);
}

std::string GroupText(const std::string& folder, const std::string& penTypes, const std::string& packages) {
  return fmt::format(
      "    <Group>\n"
      "      <Name>{0}</Name>\n"
      "      <Version>1.0</Version>\n"
      "      <Folder>{0}</Folder>\n"
      "      <!-- Types of the pens that receive the group, with commas between them; 0 is every pen. -->\n"
      "      <PenTypes>{1}</PenTypes>\n"
      "      <FileList>\n"
      "{2}"
      "      </FileList>\n"
      "    </Group>\n",
      EscapeXml(folder), EscapeXml(penTypes), packages);
}

}  // namespace

int Init(const InitOptions& options) {
  fs::path root(options.folder);
  std::error_code ignored;  // what cannot be made cannot be written into, and that is reported
  fs::create_directories(root, ignored);
  fs::path manifest = root / kManifestName;
  if (fs::exists(manifest, ignored) && !options.replace) {
    throw Failure(ExitStatus::kFile,
                  fmt::format("{} is already there; edit it, or give --force to start anew.", manifest.string()));
  }
  std::map<std::string, std::vector<std::string>> folders = FindFiles(root);
  int found = 0;
  std::string groups;
  for (const auto& [folder, files] : folders) {
    std::string packages;
    for (const std::string& file : files) packages += PackageText(file, ++found * kOrderStep);
    groups += GroupText(folder, options.penTypes, packages);
  }
  if (folders.empty()) groups = GroupText("Apps", options.penTypes, PackageText("example.pen", kOrderStep));
  WriteFile(manifest.string(), fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                           "<UPDATE>\n"
                                           "  <!-- FileType is Firmware, PenApp or PaperProduct. Lower transfer orders "
                                           "go first; firmware goes before all else. -->\n"
                                           "  <Description>What this bundle brings</Description>\n"
                                           "  <GroupList>\n{}  </GroupList>\n"
                                           "</UPDATE>\n",
                                           groups));
  return found;
}

}  // namespace authoring
