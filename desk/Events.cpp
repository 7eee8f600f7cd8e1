#include "desk/Events.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "desk/PenRun.h"
#include "desk/Text.h"

std::string ToLine(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

Json ToJson(const PackageRow& row) {
  return {{"file", row.file},   {"name", row.name},         {"guid", row.guid},       {"version", row.version},
          {"group", row.group}, {"fileType", row.fileType}, {"outcome", row.outcome}, {"reason", row.reason}};
}

Json ToJson(const PenLeft& left) {
  bool normal = left.state == PenState::kNormal;
  return {{"state", NameOf(left.state)},
          {"tellsId", left.state != PenState::kDownloadNoId && left.state != PenState::kGone},
          {"firmware", normal ? Json(left.firmware) : Json(nullptr)},
          {"applications", normal ? Json(left.applications) : Json(nullptr)},
          {"meaning", WordsOf(left)}};
}

Json FailureEvent(ExitStatus status, std::string_view sentence) {
  return {{"schema", 1},         {"event", "result"},       {"pen", nullptr},
          {"code", nullptr},     {"class", NameOf(status)}, {"exit", static_cast<int>(status)},
          {"meaning", sentence}, {"time", TimeText()}};
}

void EventLog::Write(std::string_view event, const Json& fields) {
  Json whole{{"schema", 1}, {"event", event}};
  whole.update(fields);
  Hand(whole);
}

void EventLog::Hand(const Json& whole) {
  std::string line = ToLine(whole);
  std::lock_guard<std::mutex> guard(m_lock);
  for (const Sink& sink : m_sinks) sink(line);
}

void EventLog::WriteRun(const Json& pen, const Json& handle, const Job& job) {
  Write("run", {{"pen", pen},
                {"state", "started"},
                {"command", job.command},
                {"handle", handle},
                {"bundle", job.bundle},
                {"group", job.group},
                {"time", TimeText()},
                {"log", m_log}});
}

void EventLog::WriteResult(const Json& pen, const RunEnd& end) {
  ResultText text = TextOf(end.code);
  Json rows = Json::array();
  for (const PackageRow& row : end.packages) rows.push_back(ToJson(row));
  Write("result", {{"pen", pen},
                   {"code", end.code},
                   {"class", NameOf(end.status)},
                   {"exit", static_cast<int>(end.status)},
                   {"meaning", text.meaning},
                   {"remedy", end.Remedy()},
                   {"detail", end.detail},
                   {"left", end.left ? ToJson(*end.left) : Json(nullptr)},
                   {"packages", rows},
                   {"seconds", std::round(end.seconds * 10) / 10},
                   {"time", TimeText()}});
}

void EventLog::WriteFailure(ExitStatus status, std::string_view sentence) {
  Hand(FailureEvent(status, sentence));
}

void EventLog::OnStarted(const PenRun& run) {
  WriteRun(run.Id(), run.OfPen().handle, run.OfJob());
}

void EventLog::OnProgress(const PenRun& run, const PackageProgress& progress) {
  if (!progress.due) return;
  const PackageRow& row = progress.package;
  Write("package", {{"pen", run.Id()},
                    {"state", row.finished ? "finished" : "transferring"},
                    {"file", row.file},
                    {"name", row.name},
                    {"guid", row.guid},
                    {"version", row.version},
                    {"group", row.group},
                    {"fileType", row.fileType},
                    {"done", row.done},
                    {"total", row.total},
                    {"runDone", progress.runDone},
                    {"runTotal", progress.runTotal},
                    {"rate", progress.rate},
                    {"secondsLeft", progress.secondsLeft ? Json(*progress.secondsLeft) : Json(nullptr)}});
}

void EventLog::OnDecided(const PenRun& run, const PackageRow& row, bool skip) {
  ResultText text = TextOf(row.error);
  Write("error", {{"pen", run.Id()},
                  {"code", row.error},
                  {"meaning", text.meaning},
                  {"remedy", text.remedy},
                  {"file", row.file},
                  {"version", row.version},
                  {"decision", skip ? "skip" : "stop"}});
}

void EventLog::OnWait(const PenRun& run, const Wait& wait, bool /*begins*/) {
  if (wait.what == WaitFor::kPerhapsLeave) return;
  Write("wait", {{"pen", run.Id()},
                 {"for", wait.what == WaitFor::kReturn ? "return" : "leave"},
                 {"seconds", wait.seconds},
                 {"limit", Wait::kLimit}});
}

void EventLog::OnEnded(const PenRun& run, const RunEnd& end) {
  WriteResult(run.Id(), end);
}
