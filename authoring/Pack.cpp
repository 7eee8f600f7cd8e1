#include "authoring/Pack.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "authoring/BomWriter.h"
#include "authoring/Failure.h"
#include "authoring/Files.h"
#include "authoring/Manifest.h"
#include "authoring/ZipWriter.h"

namespace authoring {

namespace fs = std::filesystem;

namespace {

void RequireFile(const fs::path& file, const std::string& remedy) {
  std::error_code ignored;
  if (fs::is_regular_file(file, ignored)) return;
  throw Failure(ExitStatus::kFile, fmt::format("There is no file {}; {}.", file.string(), remedy));
}

}  // namespace

std::vector<SignedFile> FilesToSign(const std::string& folder) {
  fs::path root(folder);
  fs::path manifestFile = root / kManifestName;
  RequireFile(manifestFile, "start a folder with \"quarvel-bundle init\" or name the one that holds update.xml");
  Manifest manifest(ReadFile(manifestFile.string()), manifestFile.string());

  std::vector<SignedFile> files{{kManifestName, "", kManifestName, manifestFile.string()}};
  for (const ManifestPackage* package : manifest.FilePackages()) {
    fs::path source = root / package->Member();
    RequireFile(source, fmt::format("update.xml lists it in line {}: add the file or take the package out",
                                    package->element->line));
    files.push_back({package->fileName, package->folder, package->Member(), source.string()});
  }
  std::sort(files.begin() + 1, files.end(),
            [](const SignedFile& a, const SignedFile& b) { return a.member < b.member; });
  return files;
}

void Pack(const std::string& folder, const Signer& signer, const std::string& output) {
  std::vector<SignedFile> files = FilesToSign(folder);
  std::string subject = signer.certificate().Subject();
  std::vector<BomEntry> entries;
  for (const SignedFile& file : files)
    entries.push_back({file.name, file.folder, subject, signer.SignFile(file.source)});

  ZipWriter zip(output);
  zip.AddBytes(kSignatureManifestName, WriteBom(entries));
  for (const SignedFile& file : files) zip.AddFile(file.member, file.source);
  zip.Close();
}

}  // namespace authoring
