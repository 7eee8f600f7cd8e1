#include "desk/ResultTexts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace {

#define QUARVEL_ROW(name, value, meaning, remedy) ResultText{value, meaning, remedy},
constexpr std::array kResults{INS_RESULT_CODES(QUARVEL_ROW)};
#undef QUARVEL_ROW

struct StatusRow {
  ExitStatus status;
  std::string_view name;
  std::string_view words;
};

#define QUARVEL_ROW(enumerator, value, json, words) StatusRow{ExitStatus::enumerator, json, words},
constexpr std::array kStatuses{QUARVEL_EXIT_STATUSES(QUARVEL_ROW)};
#undef QUARVEL_ROW

}  // namespace

ResultText TextOf(InsResCode code) {
  const auto* row = std::find_if(kResults.begin(), kResults.end(), [&](const auto& each) { return each.code == code; });
  if (row != kResults.end()) return *row;
  return {code, "the library gave a result that this program does not know", "Read the log; it tells what happened."};
}

ExitStatus StatusOf(InsResCode code) {
  switch (code) {
    case insSuccess:
    case insNothingToDo:
      return ExitStatus::kDone;
    case insAborted:
      return ExitStatus::kAborted;
    case insFileNotFound:
    case insNoResource:
    case insBadManifest:
    case insExtractFailed:
    case insUnknownPackage:
      return ExitStatus::kBundle;
    case insPenFailure:
    case insFirmwareFailed:
    case insAppFailed:
    case insTimeout:
      return ExitStatus::kPen;
    case insVerifyPenFailed:
      return ExitStatus::kVerification;
    case insPackageUnsigned:
    case insBadCertificate:
    case insNoSignature:
    case insBadSignature:
    case insNoCertificate:
    case insBadSubject:
    case insNotVerified:
      return ExitStatus::kSignature;
    default:
      return ExitStatus::kInternal;
  }
}

std::string_view NameOf(ExitStatus status) {
  const auto* row =
      std::find_if(kStatuses.begin(), kStatuses.end(), [&](const auto& each) { return each.status == status; });
  return row == kStatuses.end() ? std::string_view("internal") : row->name;
}

std::string ExitStatusHelp() {
  std::string text = "Exit status:\n";
  for (const StatusRow& row : kStatuses) text += fmt::format("  {:>3}  {}\n", static_cast<int>(row.status), row.words);
  return text;
}
