// A host in a process of its own, with the recording library in front of its pen library or without.
#ifndef QUARVEL_TESTS_TRACE_TRACERIG_H
#define QUARVEL_TESTS_TRACE_TRACERIG_H

#include <map>
#include <string>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "trace/Recording.h"

class TraceRig {
 public:
  using Environment = std::map<std::string, std::string>;

  // Over the odd pen library, unless `environment` names simulated pens. A host whose output is piped has none that is
  // a file.
  ProgramResult Run(std::vector<std::string> arguments, Environment environment, bool isRecorded = true,
                    bool isPiped = false) const {
    if (!environment.contains("TESSVIK_SIM_DIR")) environment["LD_LIBRARY_PATH"] = ODD_FOLDER;
    environment["RECORDER"] = isRecorded ? TRACE_LIBRARY : "";
    environment.insert({"TESSVIK_TRACE", file()});
    environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    const char* script =
        isPiped ? "set -o pipefail; LD_PRELOAD=$RECORDER \"$@\" | cat" : "LD_PRELOAD=$RECORDER exec \"$@\"";
    arguments.insert(arguments.begin(), {"/bin/bash", "-c", script, "bash"});
    return RunProgram(arguments, {.stdinText = "", .environment = environment});
  }
  trace::Recording Record(const std::vector<std::string>& words, Environment environment = {}) const {
    std::vector<std::string> arguments{LINKED_HOST};
    arguments.insert(arguments.end(), words.begin(), words.end());
    Run(arguments, environment);
    return trace::ReadRecordingFile(file());
  }

  std::string file() const { return m_folder / "trace.jsonl"; }
  const TempFolder& folder() const { return m_folder; }

 private:
  TempFolder m_folder;
};

#endif
