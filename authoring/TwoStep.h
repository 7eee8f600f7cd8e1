// Signing with a key that lives elsewhere, in two steps: the digests of what is to be signed go into a folder, the
// signatures come back into it.
//
// The folder holds digests.json, which lists for each file its member name, its SHA-1 in hexadecimal and the names of
// two files beside it: NNNN.sha1, the twenty bytes to sign, and NNNN.sig, where the signature is expected, either as
// raw bytes or in base64.
#ifndef QUARVEL_AUTHORING_TWOSTEP_H
#define QUARVEL_AUTHORING_TWOSTEP_H

#include <string>

#include "authoring/Effort.h"
#include "authoring/Pack.h"

namespace authoring {

// Writes the digests of a bundle folder's files into `digests`, which is made when it is missing. Returns their number.
// Throws Failure (kFile).
size_t WriteDigests(const std::string& folder, const std::string& digests);

// Packs the folder with the signatures found in `digests`. Throws Failure: kFile when a file has changed since the
// digests were written or a signature is missing, kKey when a signature is not as long as the certificate's key,
// kFindings when the bundle does not verify.
void Attach(const std::string& folder, const std::string& digests, const Certificate& certificate,
            const std::string& output, Effort& effort);

}  // namespace authoring

#endif
