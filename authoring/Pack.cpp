#include "authoring/Pack.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "authoring/BomWriter.h"
#include "authoring/Failure.h"
#include "authoring/Files.h"
#include "authoring/LoadedBundle.h"
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

// A file under a temporary name beside its final one; it takes the final name or goes.
class Draft {
 public:
  explicit Draft(const std::string& output)
      : m_output(output), m_path(fmt::format("{}.{}.tmp", output, static_cast<long>(getpid()))) {}
  ~Draft() {
    std::error_code ignored;
    fs::remove(m_path, ignored);
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;

  const std::string& path() const { return m_path; }
  void Keep() {
    std::error_code error;
    fs::rename(m_path, m_output, error);
    if (!error) return;
    throw Failure(ExitStatus::kFile, fmt::format("Cannot write {}: {}; choose a file name in a folder that can be "
                                                 "written.",
                                                 m_output, error.message()));
  }

 private:
  std::string m_output;
  std::string m_path;
};

// An unreadable file is reported where it is read.
uint64_t SizeOf(const SignedFile& file) {
  std::error_code unreadable;
  uintmax_t size = fs::file_size(file.source, unreadable);
  return unreadable ? 0 : size;
}

void RequireVerified(const std::string& bundle, const Certificate& certificate) {
  LoadedBundle loaded(bundle);
  if (loaded.result() != insSuccess) {
    throw Failure(ExitStatus::kFindings,
                  fmt::format("The bundle does not load: {} ({}); \"quarvel-bundle lint\" on the "
                              "folder names the cause.",
                              TextOf(loaded.result()).meaning, loaded.result()));
  }
  for (const FileCheck& check : CheckFiles(loaded, {&certificate, 1})) {
    if (check.result == insSuccess) continue;
    throw Failure(ExitStatus::kFindings, fmt::format("The bundle does not verify, at {}: {} ({}); \"quarvel-bundle "
                                                     "lint\" on the folder names the cause.",
                                                     check.file, TextOf(check.result).meaning, check.result));
  }
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

void PackWith(const std::string& folder, const Certificate& certificate, const std::string& output,
              const SignatureSource& sign, Effort& effort) {
  std::vector<SignedFile> files = FilesToSign(folder);
  std::string subject = certificate.Subject();
  std::vector<BomEntry> entries;
  uint64_t total = 0;
  for (const SignedFile& file : files) total += SizeOf(file);
  effort.Begin("Signing", total);
  for (const SignedFile& file : files) {
    entries.push_back({file.name, file.folder, subject, sign(file)});
    effort.Add(SizeOf(file));
  }

  Draft draft(output);
  ZipWriter zip(draft.path(), output);
  zip.AddBytes(kSignatureManifestName, WriteBom(entries));
  effort.Begin("Packing", total);
  zip.CountInto(effort);
  for (const SignedFile& file : files) zip.AddFile(file.member, file.source);
  zip.Close();
  effort.Begin("Verifying", 0);
  RequireVerified(draft.path(), certificate);
  draft.Keep();
}

void Pack(const std::string& folder, const Signer& signer, const std::string& output, Effort& effort) {
  PackWith(
      folder, signer.certificate(), output, [&signer](const SignedFile& file) { return signer.SignFile(file.source); },
      effort);
}

}  // namespace authoring
