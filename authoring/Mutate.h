// Broken bundles on purpose, made from a good one, each with the results that loading and verifying it must give: for
// the tests of whoever builds a host, and for the library's own.
#ifndef QUARVEL_AUTHORING_MUTATE_H
#define QUARVEL_AUTHORING_MUTATE_H

#include <string>
#include <vector>

#include "authoring/Signing.h"
#include "installer/QuarvelPublic.h"

namespace authoring {

// One broken bundle that was written.
struct Mutant {
  std::string name;
  std::string file;   // in the output folder
  std::string what;   // in a sentence
  InsResCode load;    // what loading gives
  InsResCode verify;  // what verifying with the signer's certificate gives; of meaning only when it loads
};

// Writes every mutant and "expected.json" into `folder`, which is made when it is missing. Without a signer the
// mutants that must be signed again are left out. Throws Failure when the bundle cannot be broken or the folder cannot
// be written.
std::vector<Mutant> Mutate(const std::string& bundle, const std::string& folder, const Signer* signer);

}  // namespace authoring

#endif
