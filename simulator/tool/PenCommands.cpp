#include <fmt/format.h>

#include <stdexcept>
#include <utility>

#include "simulator/PenBench.h"
#include "simulator/tool/Commands.h"

namespace simtool {
namespace {

// The text that a control function gives.
template <typename Give>
std::string TextFrom(Give give) {
  std::string text(static_cast<size_t>(give(nullptr, 0)) + 1, '\0');
  give(text.data(), static_cast<int32_t>(text.size()));
  text.resize(text.size() - 1);
  return text;
}

std::vector<Json> AllPens() {
  return Json::parse(TextFrom(pbListPens), nullptr, false).get<std::vector<Json>>();
}

uint64_t ParseId(const std::string& text) {
  size_t end = 0;
  uint64_t id = 0;
  try {
    id = std::stoull(text, &end, 0);
  } catch (const std::exception&) {
  }
  if (id == 0 || end != text.size()) {
    throw std::invalid_argument(fmt::format("\"{}\" is no pen id; `tessvik-sim list` shows them", text));
  }
  return id;
}

std::pair<std::string, std::string> SplitPair(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw std::invalid_argument(fmt::format("\"{}\" should be NAME=VALUE", text));
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

// "guid=writer,version=3.1" as the pen's file has it.
Json ParsePenlet(const std::string& text) {
  Json penlet = Json::object();
  size_t begin = 0;
  while (begin < text.size()) {
    const size_t end = std::min(text.find(',', begin), text.size());
    auto [key, value] = SplitPair(text.substr(begin, end - begin));
    if (key == "group-version") key = "groupVersion";
    if (key == "build") {
      penlet[key] = Json::parse(value, nullptr, false);
      if (!penlet[key].is_number_integer()) throw std::invalid_argument(fmt::format("build={} is no number", value));
    } else {
      penlet[key] = value;
    }
    begin = end + 1;
  }
  if (!penlet.contains("guid")) throw std::invalid_argument("a penlet needs at least guid=, as --penlet guid=notes");
  return penlet;
}

// A pen's file, "" without such a pen.
std::string FileOf(uint64_t id) {
  return TextFrom([id](char* out, int32_t size) { return pbShowPen(id, out, size); });
}

std::string FreeId() {
  uint64_t id = 1;
  for (const Json& pen : AllPens()) id = std::max(id, ParseId(pen["id"]) + 1);
  return fmt::format("0x{:x}", id);
}

std::string StateOf(const Json& pen) {
  if (pen.contains("schedule") && !pen["schedule"].empty()) return "leaving or returning";
  if (!pen["connected"].get<bool>()) return "unplugged";
  return pen["mode"] == "download" ? "download mode" : "connected";
}

void PrintPen(const Json& pen) {
  fmt::print("{:<20} {:<22} type {:<3} firmware {:<14} {}\n", pen["id"].get<std::string>(),
             pen["name"].get<std::string>(), pen["type"].get<int>(), pen["firmware"].get<std::string>(), StateOf(pen));
}

void PrintFaults(const Json& faults) {
  for (const Json& fault : faults) {
    const int call = fault["call"];
    fmt::print("  {} fails with {} at {}\n", fault["function"].get<std::string>(), fault["error"].get<int>(),
               call == 0 ? std::string("every call") : fmt::format("call {}", call));
  }
}

Json PenFaults(uint64_t id) {
  const std::string file = FileOf(id);
  if (file.empty())
    throw std::invalid_argument(fmt::format("there is no pen 0x{:x}; `tessvik-sim list` shows them", id));
  return Json::parse(file).value("faults", Json::array());
}

void PrintPenlets(const Json& pen) {
  for (const Json& penlet : pen["penlets"]) {
    fmt::print("  {:<16} {:<20} {:<10} build {:<4} {}\n", penlet["guid"].get<std::string>(),
               penlet["name"].get<std::string>(), penlet["version"].get<std::string>(), penlet["build"].get<int>(),
               penlet["group"] == "" ? std::string("no group")
                                     : fmt::format("group {} {}", penlet["group"].get<std::string>(),
                                                   penlet["groupVersion"].get<std::string>()));
  }
  for (const auto& setting : pen["settings"].items()) fmt::print("  {} = {}\n", setting.key(), setting.value().dump());
  PrintFaults(pen.value("faults", Json::array()));
}

}  // namespace

namespace {
bool g_json = false;
}

void WantJson(bool json) {
  g_json = json;
}

void Complain(int status, const std::string& sentence) {
  if (g_json) {
    const Json object{{"schema", 1},
                      {"event", "result"},
                      {"class", status == 1 ? "refused" : "usage"},
                      {"exit", status},
                      {"meaning", sentence}};
    const std::string line = object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    fwrite(line.data(), 1, line.size(), stdout);
  }
  fflush(stdout);
  const std::string line = fmt::format("tessvik-sim: {}\n", sentence);
  fwrite(line.data(), 1, line.size(), stderr);
}

int Finish(int32_t error) {
  if (error == 0) return 0;
  Complain(1, TextFrom(pbLastProblem));
  return 1;
}

int AddPen(const Arguments& arguments) {
  Json pen = {{"id", arguments.id.empty() ? FreeId() : fmt::format("0x{:x}", ParseId(arguments.id))},
              {"type", arguments.type}};
  if (!arguments.name.empty()) pen["name"] = arguments.name;
  if (!arguments.firmware.empty()) pen["firmware"] = arguments.firmware;
  for (const std::string& penlet : arguments.penlets) pen["penlets"].push_back(ParsePenlet(penlet));
  for (const std::string& text : arguments.settings) {
    const auto [name, value] = SplitPair(text);
    pen["settings"][name] = value;
  }
  const int32_t error = pbAddPen(pen.dump(-1, ' ', false, Json::error_handler_t::replace).c_str());
  if (error != 0) return Finish(error);
  const std::string id = pen["id"];
  if (arguments.json) {
    fmt::print("{}\n", FileOf(ParseId(id)));
  } else {
    fmt::print("Pen {} is plugged in.\n", id);
  }
  return 0;
}

int ListPens(const Arguments& arguments) {
  const std::string text = TextFrom(pbListPens);
  if (text.empty()) return Finish(pbErrFolder);
  if (arguments.json) {
    fmt::print("{}\n", text);
    return 0;
  }
  const std::vector<Json> pens = AllPens();
  if (pens.empty()) fmt::print("There are no pens; make one with `tessvik-sim add`.\n");
  for (const Json& pen : pens) PrintPen(pen);
  return 0;
}

int ShowPen(const Arguments& arguments) {
  const uint64_t id = ParseId(arguments.id);
  const std::string text = FileOf(id);
  if (text.empty()) {
    Complain(1, fmt::format("there is no pen {}; `tessvik-sim list` shows them", arguments.id));
    return 1;
  }
  if (arguments.json) {
    fmt::print("{}\n", text);
    return 0;
  }
  const Json pen = Json::parse(text);
  PrintPen(pen);
  PrintPenlets(pen);
  return 0;
}

int RemovePen(const Arguments& arguments) {
  return Finish(pbRemovePen(ParseId(arguments.id)));
}

int PlugPen(const Arguments& arguments) {
  return Finish(pbPlug(ParseId(arguments.id)));
}

int UnplugPen(const Arguments& arguments) {
  return Finish(pbUnplug(ParseId(arguments.id)));
}

int SetPen(const Arguments& arguments) {
  for (const std::string& text : arguments.settings) {
    const auto [name, value] = SplitPair(text);
    const int32_t error = pbSet(ParseId(arguments.id), name.c_str(), value.c_str());
    if (error != 0) return Finish(error);
  }
  return 0;
}

int SetFault(const Arguments& arguments) {
  const uint64_t pen = arguments.faultPen.empty() ? 0 : ParseId(arguments.faultPen);
  if (arguments.clear) return Finish(pen ? pbClearPenFaults(pen) : pbClearFaults());
  const char* function = arguments.function.c_str();
  if (*function && pen) return Finish(pbPenFault(pen, function, arguments.call, arguments.error));
  if (*function) return Finish(pbFault(function, arguments.call, arguments.error));
  const Json faults = pen ? PenFaults(pen) : Json::parse(TextFrom(pbListFaults));
  if (arguments.json) {
    fmt::print("{}\n", faults.dump(2));
    return 0;
  }
  if (faults.empty()) fmt::print("There are no faults.\n");
  PrintFaults(faults);
  return 0;
}

int SetTrace(const Arguments& arguments) {
  if (arguments.clear == !arguments.file.empty()) {
    throw std::invalid_argument("give the file of the trace, or --stop");
  }
  return Finish(pbTrace(arguments.clear ? nullptr : arguments.file.c_str()));
}

std::string SettingsHelp() {
  std::string help = "Settings:\n";
  for (const Json& setting : Json::parse(TextFrom(pbSettings))) {
    help += fmt::format("  {:<20}{} (default {})\n", setting["name"].get<std::string>(),
                        setting["meaning"].get<std::string>(), setting["default"].dump());
  }
  return help;
}

}  // namespace simtool
