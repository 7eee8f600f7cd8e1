#include "simulator/tool/Answers.h"

#include <fmt/format.h>
#include <string.h>

#include <algorithm>

#include "simulator/tool/SeenContents.h"

namespace simtool {
namespace {

using trace::Recorded;

template <size_t kSize>
std::string Field(const char (&field)[kSize]) {
  return {field, strnlen(field, kSize)};
}

std::string Words(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// The recorded answer with its texts as bytes and its handles in order.
Json Comparable(const Json& value) {
  if (value.is_string()) return trace::BytesOf(value);
  if (!value.is_array()) return value;
  Json sorted = value;
  std::sort(sorted.begin(), sorted.end());
  return sorted;
}

// What a firmware's version means, rather than how it is told.
bool MeansTheSame(const Recorded& call, const Json& out) {
  return call.function == "pcGetVersionInfo" && FirmwareText(call.out) == FirmwareText(out);
}

std::string DifferenceIn(const char* what, const Json& recorded, const Json& today) {
  if (today == recorded) return "";
  return fmt::format("{} was {} and is {} today", what, Words(recorded), Words(today));
}

std::string DifferentAnswer(const Recorded& call, const Json& out) {
  for (const auto& member : call.out.items()) {
    const auto today = out.find(member.key());
    if (today == out.end()) continue;
    const std::string name = fmt::format("the answer \"{}\"", member.key());
    const std::string difference = DifferenceIn(name.c_str(), Comparable(member.value()), *today);
    if (!difference.empty()) return difference;
  }
  return "";
}

std::string DifferentTransfer(const Recorded& call, const Json& out) {
  for (const char* member : {"total", "done"}) {
    if (!call.summary.contains(member) || !out.contains(member)) continue;
    const std::string name = fmt::format("the last progress call's \"{}\"", member);
    const std::string difference = DifferenceIn(name.c_str(), call.summary[member], out[member]);
    if (!difference.empty()) return difference;
  }
  return "";
}

}  // namespace

bool HasFailed(const std::string& function, int64_t result) {
  if (function == "pcGetPenHandles") return false;
  return function == "pcEnumeratePen" ? result != 0 && result != 1 : result != 0;
}

bool HasFailed(const Recorded& call) {
  return HasFailed(call.function, call.result);
}

Json VersionAnswers(const PenVersionInfo& info) {
  return {{"version", Field(info.firmwareVersion)}, {"suffix", Field(info.versionSuffix)}};
}

Json ItemAnswers(const PenletInfo& item) {
  return {{"guid", Field(item.guid)},
          {"name", Field(item.name)},
          {"displayName", Field(item.displayName)},
          {"version", Field(item.version)},
          {"build", item.buildNumber},
          {"present", item.present},
          {"group", Field(item.groupName)},
          {"groupVersion", Field(item.groupVersion)},
          {"firstId", item.firstId},
          {"secondId", item.secondId}};
}

std::string DifferenceOf(const Recorded& call, int64_t result, const Json& out, bool isSameLibrary) {
  const bool bothFailed = HasFailed(call) && HasFailed(call.function, result);
  const bool bothWorked = !HasFailed(call) && !HasFailed(call.function, result);
  const bool isResultSame =
      result == call.result || (!isSameLibrary && (bothFailed || (bothWorked && call.function == "pcEnumeratePen")));
  if (!isResultSame) return fmt::format("the result was {} and is {} today", call.result, result);
  if (bothFailed) return "";
  if (!isSameLibrary && MeansTheSame(call, out)) return "";
  std::string difference = DifferentAnswer(call, out);
  if (difference.empty() && isSameLibrary) difference = DifferentTransfer(call, out);
  return difference;
}

}  // namespace simtool
