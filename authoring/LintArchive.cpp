// Traps of the files: what is not there, what nobody asked for, and what cannot be unpacked everywhere.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "authoring/Lint.h"

namespace authoring {

namespace {

constexpr size_t kLongestPath = 259;

// "/tmp/", ten digits for the size, "_", twenty for the time, "/".
constexpr size_t kExtractionFolder = 37;

// A file's own folder and one more above it are always made; further ones are better there already.
constexpr size_t kFoldersMade = 2;

std::set<std::string> ListedMembers(const LintInput& input) {
  std::set<std::string> listed{kManifestName, kSignatureManifestName};
  if (!input.manifest) return listed;
  for (const ManifestPackage* package : input.manifest->FilePackages()) listed.insert(package->Member());
  return listed;
}

void MissingFile(const LintInput& input, Findings& findings) {
  if (!input.manifest) return;
  std::set<std::string> present;
  for (const Member& member : input.contents.members()) present.insert(member.name);
  for (const ManifestPackage* package : input.manifest->FilePackages()) {
    if (present.contains(package->Member())) continue;
    findings.Add(kManifestName, package->element->line, fmt::format("There is no file \"{}\"", package->Member()));
  }
}

void EmptyFile(const LintInput& input, Findings& findings) {
  std::set<std::string> listed = ListedMembers(input);
  for (const Member& member : input.contents.members()) {
    if (member.size > 0 || !listed.contains(member.name)) continue;
    findings.Add(member.name, 0, "The file is empty and counts as nothing to transfer");
  }
}

void UnlistedFile(const LintInput& input, Findings& findings) {
  std::set<std::string> listed = ListedMembers(input);
  for (const Member& member : input.contents.members()) {
    if (listed.contains(member.name) || member.hasFolderBit || member.endsAsFolder) continue;
    findings.Add(member.name, 0,
                 input.contents.isArchive()
                     ? "No package names this file; it is unpacked, but never checked or installed"
                     : "No package names this file; it is left out of the bundle");
  }
}

void PathTooLong(const LintInput& input, Findings& findings) {
  for (const std::string& name : input.shipped) {
    if (name.size() + kExtractionFolder <= kLongestPath) continue;
    findings.Add(name, 0,
                 fmt::format("Unpacked, the path can have {} bytes; it is cut to {}", name.size() + kExtractionFolder,
                             kLongestPath));
  }
}

void FoldersTooDeep(const LintInput& input, Findings& findings) {
  std::set<std::string> made;
  for (const std::string& name : input.shipped) {
    std::vector<std::string> missing;
    for (size_t slash = name.find('/'); slash != std::string::npos; slash = name.find('/', slash + 1)) {
      std::string folder = name.substr(0, slash);
      if (!made.contains(folder)) missing.push_back(folder);
    }
    if (missing.size() > kFoldersMade) {
      findings.Add(name, 0,
                   fmt::format("{} folders would have to be made at once; no more than {} are promised", missing.size(),
                               kFoldersMade));
    }
    made.insert(missing.begin(), missing.end());
  }
}

void LeavesItsFolder(const LintInput& input, Findings& findings) {
  for (const std::string& name : input.shipped) {
    bool above = ("/" + name + "/").find("/../") != std::string::npos;
    bool backslashed = name.find("..\\") != std::string::npos;
    if (!above && !backslashed && !name.starts_with('/')) continue;
    findings.Add(name, 0, "The path leads out of the bundle's own folder");
  }
}

void NamesDifferInCaseOnly(const LintInput& input, Findings& findings) {
  std::map<std::string, std::string> byLowerCase;
  for (const std::string& name : input.shipped) {
    auto [place, isNew] = byLowerCase.emplace(LowerCase(name), name);
    if (isNew) continue;
    findings.Add(
        name, 0,
        fmt::format("The name is that of \"{}\" but for letter case; both share one signature entry", place->second));
  }
}

void FolderWithoutUnixBit(const LintInput& input, Findings& findings) {
  for (const Member& member : input.contents.members()) {
    if (!member.endsAsFolder || member.hasFolderBit) continue;
    findings.Add(member.name, 0, "The entry is meant as a folder but is unpacked as a file, which fails");
  }
}

constexpr std::array kRules{
    LintRule{"missing-file", Severity::kError, MissingFile,
             "Add the file, correct \"Folder\" or \"FileName\" (letter case counts), or take the package out."},
    LintRule{"empty-file", Severity::kWarning, EmptyFile, "Put content into the file, or take the package out."},
    LintRule{"unlisted-file", Severity::kWarning, UnlistedFile, "Add a package for the file, or remove it."},
    LintRule{"path-too-long", Severity::kError, PathTooLong, "Use shorter folder and file names."},
    LintRule{"folders-too-deep", Severity::kWarning, FoldersTooDeep,
             "Put the file at most two folders deep, or one deeper than a file that is unpacked before it."},
    LintRule{"leaves-its-folder", Severity::kError, LeavesItsFolder,
             "Use paths below the bundle's top, without \"..\"."},
    LintRule{"names-differ-in-case-only", Severity::kError, NamesDifferInCaseOnly, "Rename one of them."},
    LintRule{"folder-without-unix-bit", Severity::kError, FolderWithoutUnixBit,
             "Leave folder entries out of the archive; \"quarvel-bundle pack\" writes none."},
};

}  // namespace

std::span<const LintRule> ArchiveRules() {
  return kRules;
}

}  // namespace authoring
