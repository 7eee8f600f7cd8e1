#include <fmt/format.h>
#include <stdlib.h>
#include <sys/utsname.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "desk/Failure.h"
#include "desk/History.h"
#include "desk/PenList.h"
#include "desk/RunTrace.h"
#include "desk/Text.h"
#include "desk/Version.h"
#include "host/BundleSummary.h"
#include "host/Commands.h"
#include "host/Console.h"
#include "host/HistoryText.h"
#include "host/Masking.h"
#include "host/ZipWriter.h"

namespace {

// For other programs that write the history.
constexpr std::chrono::seconds kPatience(5);

// The last part of a file, from the beginning of a line; a log that the user keeps may be long.
std::string ReadEnd(const std::string& file) {
  constexpr uint64_t longest = 4 << 20;
  std::error_code error;
  uint64_t size = std::filesystem::file_size(file, error);
  if (error) return "";
  std::ifstream in(file, std::ios::binary);
  uint64_t skipped = size > longest ? size - longest : 0;
  in.seekg(static_cast<std::streamoff>(skipped));
  std::string text(static_cast<size_t>(size - skipped), '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<size_t>(in.gcount()));
  return skipped > 0 ? text.substr(text.find('\n') + 1) : text;
}

std::string Versions() {
  utsname system{};
  uname(&system);
  return ToLine({{"schema", 1},
                 {"quarvel", LibraryVersion()},
                 {"system", system.sysname},
                 {"release", system.release},
                 {"machine", system.machine},
                 {"time", TimeText()}});
}

std::string Pens() {
  Json list = Json::array();
  for (Pen& pen : ConnectedPens()) {
    ReadContents(pen);
    list.push_back(ToJson(pen));
  }
  return ToLine({{"schema", 1}, {"pens", list}});
}

struct Member {
  std::string name;
  std::string content;
};

// The run that is asked for: one that the history numbers, the last one that failed, or the last one.
std::optional<RunRecord> ChosenRun(History& history, const Options& options) {
  HistoryFilter filter{.failed = options.failed, .readers = true, .limit = 1, .lines = true};
  bool numbered = !options.run.empty() && options.run != "last";
  if (numbered) filter.number = std::stoll(options.run);
  std::vector<RunRecord> runs = history.Find(filter);
  if (!runs.empty()) return std::move(runs.front());
  if (numbered)
    throw Failure(ExitStatus::kUsage,
                  fmt::format("There is no run {} in the history; `quarvel history` lists them.", options.run));
  if (options.failed) throw Failure(ExitStatus::kUsage, "No run in the history has failed.");
  return std::nullopt;
}

// A log of the user's own holds other runs too; of that the history has this run's lines.
std::string LogOf(const RunRecord& run, const RunFolder& folder) {
  std::string whole = run.log == folder.LogFile() ? ReadEnd(run.log) : "";
  return whole.empty() ? run.lines : whole;
}

void AddRun(std::vector<Member>& members, const RunRecord& run, const RunFolder& folder) {
  members.push_back({"run.json", ToLine(ToJson(run))});
  members.push_back({"events.jsonl", ReadEnd(folder.EventsFile())});
  members.push_back({"quarvel.log", LogOf(run, folder)});
  if (std::string trace = ReadRunTrace(run.trace); !trace.empty()) members.push_back({"trace.jsonl", trace});
  if (run.bundle.empty()) return;
  BundleSummary summary = SummaryOf(run.bundle);
  members.push_back({"bundle.json", ToLine(summary.about)});
  if (!summary.updateXml.empty()) members.push_back({"update.xml", summary.updateXml});
  if (!summary.bomXml.empty()) members.push_back({"bom.xml", summary.bomXml});
}

// A manifest holds its author's words alone.
bool IsManifest(const Member& member) {
  return member.name == "update.xml" || member.name == "bom.xml";
}

// The pens' names, and whatever begins as a path of this machine.
void AddWordsOf(Masking& masking, const Json& document) {
  for (const Json& value : document) {
    if (value.is_structured()) AddWordsOf(masking, value);
    if (value.is_string()) masking.AddFolderOf(value.get<std::string>());
  }
  if (!document.is_object() || !document.contains("pens")) return;
  for (const Json& pen : document["pens"]) masking.AddName(pen.value("name", ""));
}

void Mask(std::vector<Member>& members) {
  Masking masking;
  for (const char* variable : {"HOME", "XDG_STATE_HOME"}) {
    if (const char* folder = getenv(variable)) masking.AddFolderOf(std::string(folder) + "/x");
  }
  for (const Member& member : members) {
    masking.AddFrom(member.content);
    std::istringstream lines(member.content);
    for (std::string line; !IsManifest(member) && std::getline(lines, line);) {
      Json document = Json::parse(line, nullptr, false);
      if (document.is_object()) AddWordsOf(masking, document);
    }
  }
  for (Member& member : members) member.content = masking.Apply(member.content);
}

}  // namespace

ExitStatus ReportCommand(const Options& options) {
  std::vector<Member> members{{"versions.json", Versions()}, {"pens.json", Pens()}};
  History history(kPatience);
  std::optional<RunRecord> run = ChosenRun(history, options);
  if (run) AddRun(members, *run, history.FolderOf(*run));
  if (std::string problem = history.TakeProblem(); !problem.empty()) Complain(fmt::format("warning: {}.", problem));
  if (!options.full) Mask(members);
  std::error_code unknown;
  if (std::filesystem::exists(options.output, unknown) && !options.replace) {
    throw Failure(
        ExitStatus::kUsage,
        fmt::format("{} is there already; choose another file, or give --force to replace it.", options.output));
  }
  ZipWriter zip(options.output);
  for (const Member& member : members) zip.Add(member.name, member.content);
  zip.Close();
  fmt::print("Wrote {} with the versions, the connected pens{}; {}.\n", options.output,
             run ? fmt::format(", and the bundle, events, log and trace of {}", NameOfRun(*run))
                 : " (there is no run to report)",
             options.full ? "pen ids, names and paths stand in it in full" : "pen ids, names and paths are masked");
  return ExitStatus::kDone;
}
