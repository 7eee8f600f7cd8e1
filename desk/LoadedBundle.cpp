#include "desk/LoadedBundle.h"

#include <errno.h>
#include <fmt/format.h>
#include <string.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "desk/Failure.h"
#include "desk/FreshCopy.h"

namespace {

std::string ReadCertificate(const std::string& file) {
  constexpr uint64_t longest = 1 << 20;
  std::error_code error;
  uint64_t size = std::filesystem::file_size(file, error);
  std::string text(error || size > longest ? 0 : static_cast<size_t>(size), '\0');
  std::ifstream in(file, std::ios::binary);
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (error || !in || text.empty()) {
    throw Failure(ExitStatus::kUsage,
                  fmt::format("The certificate {} cannot be read ({}); give a PEM file with --cert.", file,
                              error            ? error.message()
                              : size > longest ? "it is too long for a certificate"
                              : size == 0      ? "it is empty"
                                               : strerror(errno)));
  }
  return text;
}

// What was unpacked before under the same name may be another bundle's.
std::string StaleNote(InsResCode code, const std::string& unpackedBefore) {
  bool mayBeStale = code == insBadSignature || code == insNoSignature || code == insBadManifest;
  if (!mayBeStale || unpackedBefore.empty()) return "";
  return fmt::format(
      " (The folder {} was there before, perhaps from another bundle of this size and date: try --fresh)",
      unpackedBefore);
}

// Ends what is done when a call on this thread, whose log line is given, did not succeed.
void Require(InsResCode code, const LogReader& log, std::string_view function, const std::string& logLine,
             const std::string& unpackedBefore) {
  if (code == insSuccess) return;
  std::string detail = DetailOf(log.LinesOfCall(LogThreadName(), function, logLine).lines);
  throw CallFailure(code, detail + StaleNote(code, unpackedBefore));
}

}  // namespace

Configuration::Configuration(const InstallChoice& choice) : m_group(choice.group) {
  for (const std::string& file : choice.certificates) m_texts.push_back(ReadCertificate(file));
  for (const std::string& text : m_texts) m_pointers.push_back(text.c_str());
  bool both = choice.firmware == choice.apps;
  if (both || choice.firmware) m_cfg.flags |= insFlagFirmware;
  if (both || choice.apps) m_cfg.flags |= insFlagApps;
  if (choice.force) m_cfg.flags |= insFlagForce;
  m_cfg.certificates = m_pointers.data();
  m_cfg.certificateCount = static_cast<int32_t>(m_pointers.size());
  m_cfg.group = m_group.c_str();
}

LoadedBundle::LoadedBundle(const LogReader& log, const std::string& file, const Configuration& configuration) {
  std::string folder = UnpackedFolder(file);
  std::error_code unknown;
  if (!folder.empty() && !std::filesystem::exists(folder, unknown)) folder.clear();
  InsResCode loaded = insLoadBundle(file.c_str(), &m_handle);
  Require(loaded, log, "insLoadBundle", fmt::format("Ret={}, BundleFile={}", loaded, file), folder);
  InsResCode valid = insVerifyBundle(m_handle, &*configuration);
  if (valid == insSuccess) return;
  int handle = std::exchange(m_handle, 0);
  std::string line = fmt::format("Ret={}, bundleHandle={}", valid, handle);
  insReleaseBundle(handle);
  Require(valid, log, "insVerifyBundle", line, folder);
}
