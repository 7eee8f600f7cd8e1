#include "desk/PackageList.h"

#include <fmt/format.h>

#include <algorithm>

#include "desk/ResultTexts.h"
#include "desk/Text.h"

namespace {

constexpr std::string_view kSkipped = "Skipped \"";

bool IsSkipOf(const LogLine& line, std::string_view file) {
  return line.tag == "CheckToInstall" && line.message.starts_with(fmt::format("{}{}\" version ", kSkipped, file));
}

// Takes the line away, so that another package of the same file name finds its own.
std::string TakeSkipReason(std::vector<LogLine>& lines, const std::string& file) {
  auto line = std::find_if(lines.begin(), lines.end(), [&](const LogLine& each) { return IsSkipOf(each, file); });
  if (line == lines.end()) return "";
  std::string reason = SkipReason(line->message);
  lines.erase(line);
  return reason;
}

void Conclude(PackageRow& row, std::string_view outcome, std::string_view reason = "") {
  row.outcome = outcome;
  row.reason = reason;
}

}  // namespace

// The reason stands behind the last comma; a version with a comma in it would only lengthen it.
std::string SkipReason(std::string_view message) {
  size_t comma = message.find(", ", message.find("\" version "));
  if (comma == std::string_view::npos) return "";
  std::string reason(message.substr(comma + 2));
  if (reason.starts_with("Same")) reason[0] = 's';
  constexpr std::string_view ending = " already installed";
  bool newer = reason.starts_with("newer ") && reason.ends_with(ending);
  return newer ? reason.substr(0, reason.size() - ending.size()) + " on the pen" : reason;
}

PackageRow& PackageList::Find(const PenUpdateProgressCallbackInfo& info) {
  std::string path = TextOrEmpty(info.packageFile);
  std::string guid = TextOrEmpty(info.guid);
  if (!m_rows.empty()) {
    PackageRow& last = m_rows.back();
    if (last.path == path && last.guid == guid) return last;
    last.finished = true;
  }
  PackageRow row;
  row.path = path;
  row.file = FileNameOf(path);
  row.name = TextOrEmpty(info.packageName);
  row.guid = guid;
  row.version = TextOrEmpty(info.version);
  row.group = TextOrEmpty(info.groupName);
  row.fileType = TextOrEmpty(info.fileType);
  m_rows.push_back(std::move(row));
  return m_rows.back();
}

// A package that is sent is reported complete twice: with its last byte, and when the pen has taken it. One that is
// sent in a single piece looks like a skipped one until then.
PackageRow& PackageList::Take(const PenUpdateProgressCallbackInfo& info) {
  PackageRow& row = Find(info);
  if (info.result != insSuccess) {
    row.error = info.result;
    return row;
  }
  row.done = info.itemDone;
  row.total = info.itemTotal;
  bool complete = info.itemDone >= info.itemTotal;
  row.completions += complete ? 1 : 0;
  row.finished = complete && (!row.transferred || row.completions > 1);
  row.transferred = row.transferred || !complete;
  return row;
}

bool PackageList::NeedLog() const {
  return std::any_of(m_rows.begin(), m_rows.end(), [](const PackageRow& row) {
    return row.error == insSuccess && !row.transferred && row.completions < 2;
  });
}

void PackageList::ConcludeInstall(InsResCode result, bool forced, const CallLines& log,
                                  const std::vector<PackageRow>& expected) {
  std::vector<LogLine> remaining = log.lines;
  bool wentThrough = result == insSuccess || result == insVerifyPenFailed;
  for (PackageRow& row : m_rows) {
    // The library is through with every package but the last, and with that when it went through.
    bool handled = row.completions > 1 || (row.completions == 1 && (wentThrough || &row != &m_rows.back()));
    bool sent = row.transferred || row.completions > 1;
    std::string reason = sent ? "" : TakeSkipReason(remaining, row.file);
    if (row.error != insSuccess) {
      Conclude(row, "failed", TextOf(row.error).meaning);
    } else if (!reason.empty()) {
      Conclude(row, "skipped", reason);
    } else if (handled && !sent && !forced && !log.whole) {
      Conclude(row, "skipped", "the log that tells why cannot be read");
    } else if (handled) {
      Conclude(row, "installed");
    } else if (row.completions == 1 && !sent && !forced && !log.whole) {
      Conclude(row, "unknown", "skipped, or sent and not confirmed; the log that tells cannot be read");
    } else {
      Conclude(row, "not finished",
               row.completions > 0 ? "sent, but not confirmed by the pen" : "the run ended before");
    }
  }
  if (result != insNothingToDo) AddUnreached(expected);
}

void PackageList::AddUnreached(const std::vector<PackageRow>& expected) {
  for (const PackageRow& row : expected) {
    auto same = [&row](const PackageRow& each) {
      return each.file == row.file && each.guid == row.guid && each.group == row.group;
    };
    if (std::any_of(m_rows.begin(), m_rows.end(), same)) continue;
    m_rows.push_back(row);
    Conclude(m_rows.back(), "not reached", "the run ended before");
  }
}

void PackageList::ConcludeRemoval() {
  for (PackageRow& row : m_rows) {
    if (row.error == insSuccess) {
      Conclude(row, "removed");
    } else {
      Conclude(row, "failed", "the pen refused to remove it");
    }
  }
}

InsResCode PackageList::FirstError() const {
  auto row =
      std::find_if(m_rows.begin(), m_rows.end(), [](const PackageRow& each) { return each.error != insSuccess; });
  return row == m_rows.end() ? insSuccess : row->error;
}
