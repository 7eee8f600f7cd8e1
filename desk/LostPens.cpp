#include "desk/LostPens.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "desk/RunFolder.h"

namespace {

std::string TextIn(const Json& object, const char* name) {
  return object.contains(name) && object[name].is_string() ? object[name].get<std::string>() : "";
}

bool FlagIn(const Json& object, const char* name) {
  return object.contains(name) && object[name].is_boolean() && object[name].get<bool>();
}

using Lost = std::map<std::string, LostPen>;

// A run that began counts as lost until its result tells otherwise.
void Begin(Lost& lost, const Json& event, const InstallOrder& order) {
  std::string id = TextIn(event, "pen");
  if (id.starts_with("0x")) lost[id] = {id, TextIn(event, "time"), "the run was ended by force", order};
}

void End(Lost& lost, const Json& event) {
  auto pen = lost.find(TextIn(event, "pen"));
  if (pen == lost.end()) return;
  bool halfWay = event.contains("left") && event["left"].is_object();
  if (!halfWay) {
    lost.erase(pen);
    return;
  }
  pen->second.how = TextIn(event, "meaning") + "; the pen was left " + TextIn(event["left"], "meaning");
}

void AddRun(Lost& lost, const RunFolder& run) {
  constexpr size_t longest = 4 << 20;
  Json description = run.ReadDescription();
  std::string command = TextIn(description, "command");
  if ((command != "install" && command != "recover") || !description.contains("order")) return;
  InstallOrder order = InstallOrderFrom(description["order"]);
  std::ifstream in(run.EventsFile(), std::ios::binary);
  size_t read = 0;
  for (std::string line; read < longest && std::getline(in, line); read += line.size() + 1) {
    Json event = Json::parse(line, nullptr, false);
    if (!event.is_object()) continue;
    std::string kind = TextIn(event, "event");
    if (kind == "run") Begin(lost, event, order);
    if (kind == "result") End(lost, event);
  }
}

}  // namespace

Json ToJson(const InstallOrder& order) {
  return {{"bundle", order.bundle},
          {"group", order.choice.group},
          {"certificates", order.choice.certificates},
          {"firmware", order.choice.firmware},
          {"apps", order.choice.apps}};
}

InstallOrder InstallOrderFrom(const Json& kept) {
  InstallOrder order;
  order.bundle = TextIn(kept, "bundle");
  order.choice.group = TextIn(kept, "group");
  order.choice.firmware = FlagIn(kept, "firmware");
  order.choice.apps = FlagIn(kept, "apps");
  if (!kept.contains("certificates") || !kept["certificates"].is_array()) return order;
  for (const Json& file : kept["certificates"]) {
    if (file.is_string()) order.choice.certificates.push_back(file.get<std::string>());
  }
  return order;
}

std::vector<LostPen> LostPens() {
  Lost lost;
  for (const RunFolder& run : RunFolder::All()) AddRun(lost, run);
  std::vector<LostPen> pens;
  for (auto& [id, pen] : lost) pens.push_back(std::move(pen));
  std::sort(pens.begin(), pens.end(), [](const LostPen& a, const LostPen& b) { return a.when > b.when; });
  return pens;
}
