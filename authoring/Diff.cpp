#include "authoring/Diff.h"

#include <fmt/format.h>

#include <map>

#include "authoring/Contents.h"
#include "authoring/Info.h"

namespace authoring {

using nlohmann::json;

namespace {

// A bundle as its things ("package chess") and their fields.
using Fields = std::map<std::string, std::string>;
using Things = std::map<std::string, Fields>;

std::string Text(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

Fields FieldsOf(const json& object) {
  Fields fields;
  for (const auto& [name, value] : object.items()) fields[name] = Text(value);
  return fields;
}

// Adds a thing; a second one of the same name gets a number.
void Add(Things& things, const std::string& name, Fields fields) {
  std::string unique = name;
  for (int number = 2; things.contains(unique); ++number) unique = fmt::format("{} ({})", name, number);
  things.emplace(unique, std::move(fields));
}

Things ThingsOf(const std::string& path) {
  LoadedBundle loaded(path);
  json info = DescribeBundle(loaded.RequireLoaded(), {});
  Things things;
  Add(things, "bundle", {{"description", Text(info["description"])}});
  for (const json& group : info["groups"]) Add(things, "group " + Text(group["name"]), FieldsOf(group));
  for (const json& package : info["packages"]) {
    std::string guid = Text(package["guid"]);
    Add(things, "package " + (guid.empty() ? Text(package["file"]) : guid), FieldsOf(package));
  }
  std::unique_ptr<Contents> contents = Contents::Open(path);
  for (const Member& member : contents->members()) {
    Add(things, "file " + member.name,
        {{"size", std::to_string(member.size)}, {"content", fmt::format("{:08x}", member.crc)}});
  }
  return things;
}

void Compare(const std::string& what, const Fields& before, const Fields& after, std::vector<Difference>& out) {
  for (const auto& [field, old] : before) {
    auto found = after.find(field);
    if (found != after.end() && found->second != old) out.push_back({what, field, old, found->second});
  }
}

}  // namespace

std::vector<Difference> Diff(const std::string& before, const std::string& after) {
  Things old = ThingsOf(before);
  Things now = ThingsOf(after);
  std::vector<Difference> differences;
  for (const auto& [what, fields] : old) {
    auto found = now.find(what);
    if (found == now.end()) {
      differences.push_back({what, "", what, ""});
    } else {
      Compare(what, fields, found->second, differences);
    }
  }
  for (const auto& [what, fields] : now) {
    if (!old.contains(what)) differences.push_back({what, "", "", what});
  }
  return differences;
}

std::string ToText(const Difference& difference) {
  if (difference.field.empty()) return fmt::format("{} {}", difference.after.empty() ? "-" : "+", difference.what);
  return fmt::format("~ {}: {} \"{}\" -> \"{}\"", difference.what, difference.field, difference.before,
                     difference.after);
}

}  // namespace authoring
