// Making a bundle: signs what the manifest lists, writes the signature manifest, zips, and has the library check the
// result. The same folder, key and certificate give the same bytes. (RSA signatures with SHA-1 have no random part.)
#ifndef QUARVEL_AUTHORING_PACK_H
#define QUARVEL_AUTHORING_PACK_H

#include <functional>
#include <string>
#include <vector>

#include "authoring/Effort.h"
#include "authoring/Signing.h"

namespace authoring {

// A file that is signed: what the signature manifest calls it, where it goes and where it is.
struct SignedFile {
  std::string name;
  std::string folder;
  std::string member;
  std::string source;
};

// "update.xml" and the files that it lists, in the order in which they are signed and stored. Throws Failure when the
// manifest cannot be read or lists a file that the folder lacks.
std::vector<SignedFile> FilesToSign(const std::string& folder);

// Gives the signature of a file, base64 on one line.
using SignatureSource = std::function<std::string(const SignedFile& file)>;

// Writes the bundle of `folder` to `output`, replacing what is there, once the library has verified it with the
// certificate. Throws Failure; `output` is then as it was. `effort` is told how far it is.
void PackWith(const std::string& folder, const Certificate& certificate, const std::string& output,
              const SignatureSource& sign, Effort& effort);
void Pack(const std::string& folder, const Signer& signer, const std::string& output, Effort& effort);

}  // namespace authoring

#endif
