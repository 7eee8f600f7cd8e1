// A good bundle taken apart, for changing and putting together again.
#ifndef QUARVEL_AUTHORING_MUTANTSOURCE_H
#define QUARVEL_AUTHORING_MUTANTSOURCE_H

#include <optional>
#include <string>
#include <vector>

#include "authoring/BomWriter.h"
#include "authoring/Contents.h"
#include "authoring/Signing.h"

namespace authoring {

struct MutantSource {
  struct File {
    std::string name;
    std::string content;
    uint64_t claimedSize = 0;  // what the archive says of the unpacked size; 0 for the truth
  };

  // Throws Failure (kFile) when the bundle holds no manifests or no signed package file that is not empty.
  explicit MutantSource(Contents& bundle);

  File& Package() { return FindFile(package); }
  File& Manifest();
  File& FindFile(const std::string& name);
  void DropFile(const std::string& name);

  // The entry of a file; a bundle that was made otherwise than by this program may write its name in other ways.
  void DropEntry(const std::string& member);

  // Signs every entry's file as it is now. The entries keep their subject.
  void Sign(const Signer& signer);

  // Puts the archive together.
  void Write(const std::string& path) const;

  std::vector<File> files;         // all but the signature manifest
  std::string package;             // the first package file's name
  std::vector<BomEntry> entries;   // what the signature manifest says...
  std::optional<std::string> bom;  // ...unless its text is given here
  bool hasBom = true;
};

}  // namespace authoring

#endif
