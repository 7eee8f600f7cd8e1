// Pens as `quarvel pens --json` printed them.
#ifndef QUARVEL_AUTHORING_PENFILE_H
#define QUARVEL_AUTHORING_PENFILE_H

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "installer/updater/PenContents.h"

namespace authoring {

// One pen with what it holds, in the records that the installer compares with. A value.
struct PenDescription {
  std::string id;  // "0x..."; empty when the pen does not tell it
  std::string name;
  int32_t type = 0;
  bool isReadable = false;  // false in download mode: what the pen holds is not known then
  std::string firmware;
  std::map<std::string, PenletInfo> penlets;  // by GUID

  PenContents Contents() const { return {firmware, penlets}; }
};

// One pen of such a document, which messages call `origin`. Throws Failure (kFile) when it could not be read.
PenDescription ReadPen(const nlohmann::json& object, const std::string& origin);

// Throws Failure (kFile) when the file is none of that kind or a pen in it could not be read.
std::vector<PenDescription> ReadPens(const std::string& file);

}  // namespace authoring

#endif
