#include "authoring/MutantSource.h"

#include <fmt/format.h>

#include <algorithm>

#include "authoring/Failure.h"
#include "authoring/Manifest.h"
#include "authoring/ZipWriter.h"

namespace authoring {

namespace {

std::string AttributeOf(const SourceElement& element, const char* name) {
  const std::string* value = element.Attribute(name);
  return value ? *value : std::string();
}

std::vector<BomEntry> ReadEntries(std::string_view bom) {
  std::vector<BomEntry> entries;
  std::optional<SourceElement> root = ParseSource(bom);
  if (!root) return entries;
  for (const SourceElement& element : root->children) {
    entries.push_back({AttributeOf(element, "name"), AttributeOf(element, "folder"), AttributeOf(element, "subject"),
                       AttributeOf(element, "signature")});
  }
  return entries;
}

std::string MemberOf(const BomEntry& entry) {
  std::string member = entry.folder.empty() ? entry.name : entry.folder + "/" + entry.name;
  std::replace(member.begin(), member.end(), '\\', '/');
  return LowerCase(member);
}

}  // namespace

MutantSource::MutantSource(Contents& bundle) {
  for (const Member& member : bundle.members()) {
    if (member.endsAsFolder) continue;
    if (member.name == kSignatureManifestName) {
      entries = ReadEntries(bundle.Read(member));
    } else {
      files.push_back({member.name, bundle.Read(member)});
    }
  }
  authoring::Manifest manifest(bundle.ReadManifest(kManifestName).value_or(""), bundle.path());
  for (const ManifestPackage* candidate : manifest.FilePackages()) {
    const Member* member = bundle.Find(candidate->Member());
    if (package.empty() && member && member->size > 0) package = member->name;
  }
  if (package.empty() || entries.empty()) {
    throw Failure(ExitStatus::kFile, fmt::format("{} holds no signed package file to break; give a bundle that "
                                                 "\"quarvel-bundle pack\" made.",
                                                 bundle.path()));
  }
}

MutantSource::File& MutantSource::Manifest() {
  return FindFile(kManifestName);
}

MutantSource::File& MutantSource::FindFile(const std::string& name) {
  return *std::find_if(files.begin(), files.end(), [&name](const File& file) { return file.name == name; });
}

void MutantSource::DropFile(const std::string& name) {
  std::erase_if(files, [&name](const File& file) { return file.name == name; });
}

void MutantSource::DropEntry(const std::string& member) {
  std::erase_if(entries, [&member](const BomEntry& entry) { return MemberOf(entry) == LowerCase(member); });
}

void MutantSource::Sign(const Signer& signer) {
  for (BomEntry& entry : entries) {
    auto signedFile = std::find_if(files.begin(), files.end(),
                                   [&entry](const File& file) { return LowerCase(file.name) == MemberOf(entry); });
    if (signedFile != files.end()) entry.signature = signer.SignBytes(signedFile->content);
  }
}

void MutantSource::Write(const std::string& path) const {
  ZipWriter zip(path);
  if (hasBom) zip.AddBytes(kSignatureManifestName, bom ? *bom : WriteBom(entries));
  for (const File& file : files) {
    if (file.claimedSize > 0) {
      zip.AddClaiming(file.name, file.content, file.claimedSize);
    } else {
      zip.AddBytes(file.name, file.content, file.name.ends_with('/') ? 0 : ZipWriter::kFileAttributes);
    }
  }
  zip.Close();
}

}  // namespace authoring
