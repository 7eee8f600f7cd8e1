// A desk: simulated pens in a folder of their own, a signed bundle and its certificate, and the built program to work
// on them. All of it goes with the object.
#ifndef QUARVEL_TESTS_HOST_HOSTRIG_H
#define QUARVEL_TESTS_HOST_HOSTRIG_H

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/RunProgram.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TestBundle.h"

using Json = nlohmann::ordered_json;
using Words = std::vector<std::string>;

constexpr const char* kAda = "0x000000000000002a";
constexpr const char* kBo = "0x000000000000002b";

// Two applications, of which a pen of Ada() holds one in an older version.
inline TestBundleOptions NotesBundle() {
  TestBundleOptions options;
  options.groups = {{.name = "Notes",
                     .version = "3.1",
                     .folder = "Notes",
                     .packages = {PenAppPackage("sketch", "Sketchpad", "2.3", 2, 10),
                                  PenAppPackage("writer", "Writer", "3.1.0", 7, 20)}}};
  return options;
}

inline TestBundleOptions FirmwareBundle() {
  TestBundleOptions options = NotesBundle();
  options.groups[0].packages.insert(options.groups[0].packages.begin(), FirmwarePackage("8.9.15.b2", 1));
  return options;
}

class HostRig {
 public:
  explicit HostRig(const TestBundleOptions& options = NotesBundle()) : m_bundle(options) {
    std::filesystem::create_directories(m_folder / "pens");
    m_folder.Write("cert.pem", MakeTestIdentity().certPem);
    m_folder.Write("foreign.pem", MakeTestIdentity("/C=SE/O=Elsewhere/CN=Nobody", 1).certPem);
  }

  // Plugs in the pen 0x2a with an older Sketchpad, or another pen with the same.
  HostRig& AddPen(const std::string& id = "0x2a", const Words& settings = {}) {
    Words words{
        "add",       "--id",       id,
        "--name",    "Pen of Ada", "--firmware",
        "8.9.14.b1", "--penlet",   "guid=sketch,name=Sketchpad,version=2.2,build=1,group=Notes,group-version=3.0"};
    Sim(words);
    Words change{"set", id, "leave-time=10", "return-time=10"};
    change.insert(change.end(), settings.begin(), settings.end());
    Sim(change);
    return *this;
  }
  void Sim(Words words) const {
    words.insert(words.begin(), TESSVIK_SIM_PROGRAM);
    ProgramResult result = RunProgram(words, Input());
    if (result.status != 0) throw std::runtime_error("tessvik-sim: " + result.err);
  }

  // Words that stand for files: BUNDLE, CERT, FOREIGN, DIR (the desk's folder).
  ProgramResult Quarvel(const Words& words) const {
    Words whole{QUARVEL_PROGRAM};
    for (const std::string& word : words) whole.push_back(Replaced(word));
    return RunProgram(whole, Input());
  }
  ProgramResult Install(Words more = {"--all"}) const {
    more.insert(more.begin(), {"install", "BUNDLE", "--cert", "CERT"});
    return Quarvel(more);
  }
  // A script with $quarvel, $bundle, $cert and $dir.
  ProgramResult Shell(const std::string& script) const {
    ProgramInput input = Input();
    input.environment.insert(
        {{"quarvel", QUARVEL_PROGRAM}, {"bundle", m_bundle.path()}, {"cert", m_folder / "cert.pem"}, {"dir", path()}});
    return RunProgram({"/bin/bash", "-c", script}, input);
  }

  std::string path() const { return m_folder.path(); }
  const TempFolder& folder() const { return m_folder; }

 private:
  std::string Replaced(const std::string& word) const {
    if (word == "BUNDLE") return m_bundle.path();
    if (word == "CERT") return m_folder / "cert.pem";
    if (word == "FOREIGN") return m_folder / "foreign.pem";
    return word.starts_with("DIR") ? path() + word.substr(3) : word;
  }
  ProgramInput Input() const {
    return {.stdinText = "",
            .environment = {{"TESSVIK_SIM_DIR", m_folder / "pens"},
                            {"XDG_STATE_HOME", m_folder / "state"},
                            {"TERM", "xterm"},
                            {"NO_COLOR", ""}}};
  }

  TempFolder m_folder;
  TestBundle m_bundle;
};

// What `run` gives for each case. The cases go side by side, since the program mostly waits for pens and for its log.
template <typename Cases, typename Run>
std::vector<ProgramResult> RunAll(const Cases& cases, Run run) {
  std::vector<std::future<ProgramResult>> running;
  for (const auto& row : cases) running.push_back(std::async(std::launch::async, run, std::cref(row)));
  std::vector<ProgramResult> results;
  for (auto& one : running) results.push_back(one.get());
  return results;
}

// Every line, parsed; a line that is no JSON throws.
inline std::vector<Json> Lines(const std::string& text) {
  std::vector<Json> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(Json::parse(line));
  return lines;
}

// The events of one kind.
inline std::vector<Json> EventsOf(const std::string& text, const std::string& event) {
  std::vector<Json> chosen;
  for (const Json& line : Lines(text)) {
    if (line.at("event") == event) chosen.push_back(line);
  }
  return chosen;
}

inline size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

inline bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

#endif
