#include "authoring/PenFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "authoring/Failure.h"
#include "authoring/Files.h"

namespace authoring {

using nlohmann::json;

namespace {

constexpr const char* kRemedy = "print it again with \"quarvel pens --json\"";

// Cut to what the pen's record holds.
template <size_t kSize>
void CopyText(const json& object, const char* key, char (&field)[kSize]) {
  const auto text = object.at(key).get<std::string>();
  std::memcpy(field, text.data(), std::min(text.size(), kSize - 1));
}

PenletInfo ReadPenlet(const json& object) {
  PenletInfo penlet{};
  CopyText(object, "guid", penlet.guid);
  CopyText(object, "name", penlet.name);
  CopyText(object, "version", penlet.version);
  CopyText(object, "group", penlet.groupName);
  CopyText(object, "groupVersion", penlet.groupVersion);
  penlet.buildNumber = object.at("build").get<int32_t>();
  penlet.present = 1;
  return penlet;
}

}  // namespace

PenDescription ReadPen(const json& object, const std::string& file) {
  PenDescription pen;
  pen.name = object.at("name").get<std::string>();
  if (!object.at("id").is_null()) pen.id = object["id"].get<std::string>();
  pen.isReadable = object.at("state") == "normal";
  const bool lacksContents = object.at("firmware").is_null() || object.at("penlets").is_null();
  if (object.at("type").is_null() || (pen.isReadable && lacksContents)) {
    throw Failure(ExitStatus::kFile, fmt::format("The pen \"{}\" in {} could not be read; check its connection and {}.",
                                                 pen.name, file, kRemedy));
  }
  pen.type = object["type"].get<int32_t>();
  if (!pen.isReadable) return pen;
  pen.firmware = object["firmware"].get<std::string>();
  for (const json& entry : object["penlets"]) {
    const PenletInfo penlet = ReadPenlet(entry);
    pen.penlets[FieldText(penlet.guid)] = penlet;
  }
  return pen;
}

std::vector<PenDescription> ReadPens(const std::string& file) {
  const std::string text = ReadFile(file);
  std::vector<PenDescription> pens;
  try {
    const json document = json::parse(text);
    for (const json& object : document.at("pens")) pens.push_back(ReadPen(object, file));
  } catch (const json::exception&) {
    throw Failure(ExitStatus::kFile, fmt::format("{} is no list of pens; {}.", file, kRemedy));
  }
  if (pens.empty()) {
    throw Failure(ExitStatus::kFile, fmt::format("{} lists no pen; connect one and {}.", file, kRemedy));
  }
  return pens;
}

}  // namespace authoring
