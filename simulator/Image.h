// The files that a simulated pen takes. The head is text: a first line that names the kind, "key: value" lines, an
// empty line; anything may follow.
//
//   TESSVIK-APP 1                 TESSVIK-FIRMWARE 1
//   guid: writer                  version: 8.9.15.b2
//   version: 3.1.0
//   build: 7
//   kind: app        (or paper)
//   name: Writer
#ifndef QUARVEL_SIMULATOR_IMAGE_H
#define QUARVEL_SIMULATOR_IMAGE_H

#include <cstdint>
#include <string>

#include "simulator/Pen.h"

namespace sim {

struct Image {
  Penlet penlet{};         // of an application
  std::string firmware{};  // of a firmware image
  uint64_t size = 0;       // bytes of the whole file
};

// Both throw Problem with pbErrFile, and with pbErrNotApp or pbErrNotFirmware for a file that is none.
Image ReadApp(const char* file);
Image ReadFirmware(const char* file);

}  // namespace sim

#endif
