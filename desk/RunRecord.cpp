#include "desk/RunRecord.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "desk/Events.h"

namespace {

const Json& In(const Json& object, const char* name) {
  static const Json none = nullptr;
  auto value = object.find(name);
  return value == object.end() ? none : *value;
}

std::string TextIn(const Json& object, const char* name) {
  const Json& value = In(object, name);
  return value.is_string() ? value.get<std::string>() : "";
}

std::optional<int64_t> NumberIn(const Json& object, const char* name) {
  const Json& value = In(object, name);
  return value.is_number_integer() ? std::optional<int64_t>(value.get<int64_t>()) : std::nullopt;
}

bool FlagIn(const Json& object, const char* name) {
  const Json& value = In(object, name);
  return value.is_boolean() && value.get<bool>();
}

Json OrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json OrNull(std::optional<int64_t> number) {
  return number ? Json(*number) : Json(nullptr);
}

PackageRow PackageFrom(const Json& kept) {
  PackageRow row;
  row.file = TextIn(kept, "file");
  row.name = TextIn(kept, "name");
  row.guid = TextIn(kept, "guid");
  row.version = TextIn(kept, "version");
  row.group = TextIn(kept, "group");
  row.fileType = TextIn(kept, "fileType");
  row.outcome = TextIn(kept, "outcome");
  row.reason = TextIn(kept, "reason");
  return row;
}

void TakeResult(PenRecord& pen, const Json& line) {
  pen.ended = TextIn(line, "ended");
  pen.code = static_cast<InsResCode>(NumberIn(line, "code").value_or(0));
  pen.status = static_cast<ExitStatus>(NumberIn(line, "exit").value_or(0));
  pen.detail = TextIn(line, "detail");
  pen.left = TextIn(line, "left");
  pen.leftState = TextIn(line, "leftState");
  pen.remedy = TextIn(line, "remedy");
  const Json& seconds = In(line, "seconds");
  pen.seconds = seconds.is_number() ? seconds.get<double>() : 0;
  if (std::string before = TextIn(line, "firmwareBefore"); !before.empty()) pen.firmwareBefore = before;
  pen.firmwareAfter = TextIn(line, "firmwareAfter");
  for (const Json& row : In(line, "packages")) pen.packages.push_back(PackageFrom(row));
}

// Takes a journal's lines one by one.
class JournalReader {
 public:
  void Take(const Json& line) {
    if (line.contains("journal")) return TakeBegin(line);
    if (line.contains("order")) return TakeOrder(line);
    if (line.contains("pen")) return TakePen(line);
    if (line.contains("result")) return FindPen(line);
    if (!line.contains("end") || m_run.status) return;
    m_run.ended = TextIn(line, "end");
    m_run.status = NumberIn(line, "exit");
    m_run.sentence = TextIn(line, "sentence");
  }
  bool HasBegun() const { return m_begun; }
  RunRecord& Run() { return m_run; }

 private:
  void TakeBegin(const Json& line) {
    m_begun = true;
    m_run.program = TextIn(line, "program");
    m_run.command = TextIn(line, "command");
    m_run.started = TextIn(line, "started");
    m_run.log = TextIn(line, "log");
    m_run.logFrom = NumberIn(line, "logFrom").value_or(0);
    m_run.trace = TextIn(line, "trace");
  }
  // Pens that begin later get what was ordered last.
  void TakeOrder(const Json& line) {
    m_order = InstallOrderFrom(In(line, "order"));
    m_run.bundle = m_order.bundle;
    m_run.group = m_order.choice.group;
    m_run.bundleBytes = NumberIn(line, "bytes");
    m_run.bundleDigest = TextIn(line, "sha256");
  }
  void TakePen(const Json& line) {
    PenRecord pen;
    pen.id = TextIn(line, "pen");
    pen.name = TextIn(line, "name");
    pen.type = NumberIn(line, "type");
    pen.firmwareBefore = TextIn(line, "firmware");
    pen.began = TextIn(line, "began");
    pen.order = m_order;
    m_run.pens.push_back(std::move(pen));
  }
  void FindPen(const Json& line) {
    std::string id = TextIn(line, "result");
    auto open = [&id](const PenRecord& pen) { return pen.id == id && !pen.HasEnded(); };
    auto pen = std::find_if(m_run.pens.begin(), m_run.pens.end(), open);
    if (pen != m_run.pens.end()) TakeResult(*pen, line);
  }

  bool m_begun = false;
  InstallOrder m_order;
  RunRecord m_run;
};

Json ToJson(const PenRecord& pen) {
  Json packages = Json::array();
  for (const PackageRow& row : pen.packages) packages.push_back(ToJson(row));
  bool ended = pen.HasEnded();
  return {{"pen", pen.id},
          {"name", pen.name},
          {"type", OrNull(pen.type)},
          {"firmwareBefore", OrNull(pen.firmwareBefore)},
          {"firmwareAfter", OrNull(pen.firmwareAfter)},
          {"began", pen.began},
          {"ended", OrNull(pen.ended)},
          {"code", ended ? Json(pen.code) : Json(nullptr)},
          {"class", ended ? Json(NameOf(pen.status)) : Json(nullptr)},
          {"meaning", ended ? Json(TextOf(pen.code).meaning) : Json(nullptr)},
          {"detail", pen.detail},
          {"left", OrNull(pen.leftState)},
          {"remedy", pen.remedy},
          {"seconds", ended ? Json(pen.seconds) : Json(nullptr)},
          {"packages", packages}};
}

}  // namespace

bool RunRecord::HasFailed() const {
  return EndedWithoutResult() || (status && *status != static_cast<int64_t>(ExitStatus::kDone) &&
                                  *status != static_cast<int64_t>(ExitStatus::kCurrent));
}

std::optional<RunRecord> RecordFromJournal(const std::string& file) {
  constexpr size_t longest = 64 << 20;
  std::ifstream in(file, std::ios::binary);
  JournalReader reader;
  size_t read = 0;
  for (std::string line; read < longest && std::getline(in, line); read += line.size() + 1) {
    Json value = Json::parse(line, nullptr, false);
    if (value.is_object()) reader.Take(value);
  }
  if (!reader.HasBegun()) return std::nullopt;
  return std::move(reader.Run());
}

Json ToJson(const RunRecord& run) {
  Json pens = Json::array();
  for (const PenRecord& pen : run.pens) pens.push_back(ToJson(pen));
  std::string_view state = run.status ? "ended" : run.running ? "running" : "lost";
  Json bundle = nullptr;
  if (!run.bundle.empty()) {
    bundle = {{"file", run.bundle}, {"bytes", OrNull(run.bundleBytes)}, {"sha256", OrNull(run.bundleDigest)}};
  }
  return {{"run", run.number},
          {"command", run.command},
          {"program", run.program},
          {"state", state},
          {"started", run.started},
          {"ended", OrNull(run.ended)},
          {"exit", OrNull(run.status)},
          {"class", run.status ? Json(NameOf(static_cast<ExitStatus>(*run.status))) : Json(nullptr)},
          {"meaning", run.sentence},
          {"bundle", bundle},
          {"group", run.group},
          {"log", run.log},
          {"trace", OrNull(run.trace)},
          {"pens", pens}};
}

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
  for (const Json& file : In(kept, "certificates")) {
    if (file.is_string()) order.choice.certificates.push_back(file.get<std::string>());
  }
  return order;
}
