// The bundle and the pen that most tests of runs begin with.
#ifndef QUARVEL_TESTS_SUPPORT_AUTUMN_H
#define QUARVEL_TESTS_SUPPORT_AUTUMN_H

#include "tests/support/SimPens.h"
#include "tests/support/TestBundle.h"

constexpr uint64_t kPenId = 0x2a;

// Type 1, older firmware, an old application and one that the bundle raises without carrying it.
inline SimPens::Json OldPen() {
  return {{"id", "0x2a"},
          {"type", 1},
          {"name", "Ada"},
          {"firmware", "8.9.14.b1"},
          {"penlets",
           {{{"guid", "settings"}, {"version", "1.9"}, {"build", 4}, {"group", "System"}, {"groupVersion", "1.8"}},
            {{"guid", "sketch"}, {"version", "2.2"}, {"group", "Notes"}, {"groupVersion", "3.0"}}}}};
}

// Firmware and an application in one group, an application and a paper product in another.
inline TestBundleOptions AutumnBundle() {
  TestPackage writer = PenAppPackage("writer", "Writer", "3.1.0", 7, 20);
  writer.action = "Install";
  writer.properties = {{"Audience", "everyone"}, {"Language", "en & sv"}};
  TestBundleOptions options;
  options.groups = {
      {.name = "System",
       .version = "2.0",
       .penTypes = "1",
       .folder = "System",
       .packages = {FirmwarePackage("8.9.15.b2", 1), PenAppPackage("settings", "Settings", "2.0.1", 12, 10)}},
      {.name = "Notes",
       .version = "3.1",
       .penTypes = "1,2",
       .folder = "Notes",
       .packages = {writer, PaperPackage("notebook", "Notebook A5", "1.0", 0, 30)}}};
  return options;
}

// The pen with the bundle on it, as SimPens::Contents tells it.
constexpr const char* kInstalled =
    "8.9.15.b2; settings 2.0.1 (System 2.0); sketch 2.2 (Notes 3.1); writer 3.1.0 (Notes 3.1); notebook 1.0 (Notes "
    "3.1)";

#endif
