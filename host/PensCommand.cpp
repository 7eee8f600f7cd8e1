#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "desk/PenList.h"
#include "desk/Text.h"
#include "host/Commands.h"
#include "host/Console.h"

namespace {

void ShowPenlets(const Console& console, const PenHoldings& contents) {
  std::map<std::string, std::vector<const Penlet*>> groups;
  for (const Penlet& penlet : contents.penlets) groups[penlet.group].push_back(&penlet);
  for (const auto& [name, penlets] : groups) {
    const std::string& version = penlets.front()->groupVersion;
    console.Line(name.empty()
                     ? "    (no group)"
                     : fmt::format("    {}{}", Printable(name), version.empty() ? "" : ' ' + Printable(version)));
    for (const Penlet* penlet : penlets) {
      std::string build = penlet->build == 0 ? "" : fmt::format(" ({})", penlet->build);
      console.Line(fmt::format("      {:<24}  {:<15}  {:<15}  {}", Printable(penlet->name),
                               Printable(penlet->version) + build, Printable(penlet->guid),
                               penlet->paper ? "paper product" : "application"));
    }
  }
  if (groups.empty()) console.Line("    no applications");
}

constexpr std::string_view kRow = "{:<18}  {:>6}  {:<20}  {:>4}  {:<8}  {}";

void ShowPen(const Console& console, const Pen& pen) {
  std::string firmware = pen.contents ? Printable(pen.contents->firmware) : "cannot be read";
  if (firmware.empty()) firmware = "of an unknown form";
  console.Line(fmt::format(kRow, IdText(pen), pen.handle, Printable(pen.name),
                           pen.type ? std::to_string(*pen.type) : "?", StateText(pen), firmware));
  if (pen.contents) ShowPenlets(console, *pen.contents);
}

void ShowTable(const Console& console, const std::vector<Pen>& pens) {
  if (pens.empty()) return console.Line("No pen is connected.");
  console.Line(fmt::format(kRow, "ID", "HANDLE", "NAME", "TYPE", "STATE", "FIRMWARE"));
  for (const Pen& pen : pens) ShowPen(console, pen);
}

void ShowIds(const Console& console, const std::vector<Pen>& pens) {
  for (const Pen& pen : pens) {
    if (pen.id) console.Line(PenIdText(*pen.id));
  }
}

}  // namespace

ExitStatus PensCommand(const Options& options) {
  Console console(false, false);
  std::vector<Pen> pens = options.pens.empty() ? ConnectedPens() : SelectPens(options.pens, false);
  if (options.idsOnly) {
    ShowIds(console, pens);
    return ExitStatus::kDone;
  }
  for (Pen& pen : pens) ReadContents(pen);
  std::string note = CrowdNote(pens.size());
  if (!note.empty()) Console(true, false).Problem(note);
  if (!options.json) {
    ShowTable(console, pens);
    return ExitStatus::kDone;
  }
  Json list = Json::array();
  for (const Pen& pen : pens) list.push_back(ToJson(pen));
  console.Raw(ToLine({{"schema", 1}, {"pens", list}}));
  return ExitStatus::kDone;
}
