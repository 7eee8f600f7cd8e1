// What a bundle's file looks like from outside, for a report: nothing is unpacked to disk and nothing is verified.
#ifndef QUARVEL_HOST_BUNDLESUMMARY_H
#define QUARVEL_HOST_BUNDLESUMMARY_H

#include <nlohmann/json.hpp>
#include <string>

#include "desk/Json.h"

struct BundleSummary {
  Json about;             // "file", "size", "modified", "members" (name, size, packed size, CRC), or "problem"
  std::string updateXml;  // the manifests as they stand; empty when missing or over 1 MiB
  std::string bomXml;
};

BundleSummary SummaryOf(const std::string& bundle);

#endif
