// The first manifest of a new bundle.
#ifndef QUARVEL_AUTHORING_INIT_H
#define QUARVEL_AUTHORING_INIT_H

#include <string>

namespace authoring {

struct InitOptions {
  std::string folder;  // made when it is missing
  std::string penTypes = "0";
  bool replace = false;  // an update.xml that is there
};

// Writes "update.xml": a group for each subfolder that holds files and a package for each file in it; for an empty
// folder one example group. Returns the number of packages found (0 for the example). Throws Failure (kFile).
int Init(const InitOptions& options);

}  // namespace authoring

#endif
