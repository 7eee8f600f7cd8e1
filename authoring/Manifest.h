// The parts of "update.xml" that the author's tool works with: groups, their packages and the files that the packages
// name. A reading of the source, with lines; views and pointers live as long as the manifest.
#ifndef QUARVEL_AUTHORING_MANIFEST_H
#define QUARVEL_AUTHORING_MANIFEST_H

#include <string>
#include <string_view>
#include <vector>

#include "authoring/SourceDocument.h"

namespace authoring {

constexpr const char* kManifestName = "update.xml";
constexpr const char* kSignatureManifestName = "bom.xml";

struct ManifestPackage {
  const SourceElement* element = nullptr;
  std::string folder;    // the group's, "Files" when it names none
  std::string fileName;  // as written; empty when the package has no file

  // The file's place in the archive and below the source folder, with "/" throughout.
  std::string Member() const;
};

struct ManifestGroup {
  const SourceElement* element = nullptr;
  std::string folder;
  std::vector<ManifestPackage> packages;  // in the order written
};

class Manifest {
 public:
  // Throws Failure (kFile) when the text has no root or no GroupList; `origin` names it in the message.
  Manifest(std::string_view text, const std::string& origin);
  Manifest(const Manifest&) = delete;
  Manifest& operator=(const Manifest&) = delete;

  const SourceElement& root() const { return m_root; }
  const std::vector<ManifestGroup>& groups() const { return m_groups; }
  // Every package that names a file, in the order written; each file once.
  std::vector<const ManifestPackage*> FilePackages() const;

 private:
  SourceElement m_root;
  std::vector<ManifestGroup> m_groups;
};

// Folded as the library folds names and keys before it compares them.
std::string LowerCase(std::string text);

}  // namespace authoring

#endif
