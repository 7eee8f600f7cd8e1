// Compares what the library exports and how its records lie in memory with the pinned list. When the surface changes
// on purpose, the failure's text is the new content of that list.
#include <gtest/gtest.h>
#include <stdio.h>

#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "installer/QuarvelPublic.h"

namespace {

struct CloseProgram {
  void operator()(FILE* program) const { pclose(program); }
};

// The symbols that the built library defines for others, sorted.
std::set<std::string> Exports() {
  std::unique_ptr<FILE, CloseProgram> program(popen("nm -D --defined-only " QUARVEL_LIBRARY, "r"));
  std::set<std::string> names;
  char address[64];
  char kind[8];
  char name[256];
  while (program && fscanf(program.get(), "%63s %7s %255s", address, kind, name) == 3) names.insert(name);
  return names;
}

template <typename Field>
std::string Place(const char* name, size_t offset, const Field&) {
  return "  " + std::string(name) + " " + std::to_string(offset) + " " + std::to_string(sizeof(Field)) + "\n";
}

std::string Records() {
  std::ostringstream out;
#define RECORD(type) out << #type << " " << sizeof(type) << "\n";
#define FIELD(type, field) out << Place(#field, offsetof(type, field), type{}.field);
  RECORD(PenUpdateCfg)
  FIELD(PenUpdateCfg, flags)
  FIELD(PenUpdateCfg, certificates)
  FIELD(PenUpdateCfg, certificateCount)
  FIELD(PenUpdateCfg, group)
  RECORD(PenUpdateProperty)
  FIELD(PenUpdateProperty, name)
  FIELD(PenUpdateProperty, value)
  RECORD(PenUpdateProgressCallbackInfo)
  FIELD(PenUpdateProgressCallbackInfo, result)
  FIELD(PenUpdateProgressCallbackInfo, penId)
  FIELD(PenUpdateProgressCallbackInfo, packageFile)
  FIELD(PenUpdateProgressCallbackInfo, packageName)
  FIELD(PenUpdateProgressCallbackInfo, guid)
  FIELD(PenUpdateProgressCallbackInfo, version)
  FIELD(PenUpdateProgressCallbackInfo, action)
  FIELD(PenUpdateProgressCallbackInfo, fileType)
  FIELD(PenUpdateProgressCallbackInfo, transferOrder)
  FIELD(PenUpdateProgressCallbackInfo, properties)
  FIELD(PenUpdateProgressCallbackInfo, propertyCount)
  FIELD(PenUpdateProgressCallbackInfo, bundleFile)
  FIELD(PenUpdateProgressCallbackInfo, groupName)
  FIELD(PenUpdateProgressCallbackInfo, doneCount)
  FIELD(PenUpdateProgressCallbackInfo, totalCount)
  FIELD(PenUpdateProgressCallbackInfo, itemDone)
  FIELD(PenUpdateProgressCallbackInfo, itemTotal)
  FIELD(PenUpdateProgressCallbackInfo, startTime)
#undef FIELD
#undef RECORD
  return out.str();
}

// The part of the pinned list under a heading, up to the next heading.
std::string Pinned(const std::string& heading) {
  std::ifstream file(QUARVEL_ABI_FILE);
  std::string line, section;
  bool inside = false;
  while (std::getline(file, line)) {
    if (line.starts_with("[")) {
      inside = line == heading;
    } else if (inside && !line.empty()) {
      section += line + "\n";
    }
  }
  return section;
}

}  // namespace

TEST(Surface, ExportsExactlyThePinnedFunctions) {
  std::string names;
  for (const std::string& name : Exports()) names += name + "\n";
  EXPECT_EQ(names, Pinned("[functions]"));
}

TEST(Surface, LaysTheRecordsOutAsPinned) {
  const std::string heading = sizeof(void*) == 4 ? "[records, 32-bit x86]" : "[records, 64-bit]";
  EXPECT_EQ(Records(), Pinned(heading));
}
