// A bundle that the library itself has loaded, for the commands that must see it as the library does. Nothing of the
// load stays behind: the extraction folder goes with the object.
#ifndef QUARVEL_AUTHORING_LOADEDBUNDLE_H
#define QUARVEL_AUTHORING_LOADEDBUNDLE_H

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "authoring/Files.h"
#include "authoring/Signing.h"
#include "installer/bundle/Bundle.h"

namespace authoring {

class LoadedBundle {
 public:
  // Loads a private copy, because the extraction folder is named for a file's size and date and what lies there of the
  // right size is taken as it is. Throws Failure (kFile) when there is no such file; a failed load is in result().
  explicit LoadedBundle(const std::string& path);
  ~LoadedBundle();
  LoadedBundle(const LoadedBundle&) = delete;
  LoadedBundle& operator=(const LoadedBundle&) = delete;

  InsResCode result() const { return m_result; }
  // Throws Failure (kFile) when the load failed.
  const LoadedBundle& RequireLoaded() const;

  const std::string& path() const { return m_path; }
  CBundle& bundle() const { return *m_bundle; }
  // Every package of every group in transfer order.
  std::vector<BundlePackage*> Packages() const;

 private:
  std::string m_path;
  ScratchFolder m_scratch;
  std::string m_copy;
  std::unique_ptr<CBundle> m_bundle;
  InsResCode m_result;
};

// What the library's check said of one file.
struct FileCheck {
  std::string file;    // inside the bundle
  std::string signer;  // as the signature manifest names it
  InsResCode result;
};

// Checks the manifest and every package file, where the library itself stops at the first failure. Throws Failure
// (kKey) when the library does not take a certificate.
std::vector<FileCheck> CheckFiles(const LoadedBundle& loaded, std::span<const Certificate> certificates);

// A result's meaning and what to do about it, in words; the remedy may be empty.
struct ResultText {
  const char* meaning;
  const char* remedy;
};
ResultText TextOf(InsResCode result);

}  // namespace authoring

#endif
