#include "tests/sweep/FaultPage.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace {

std::pair<size_t, size_t> Place(const std::string& page, const std::string& heading) {
  const size_t begin = page.find(heading + "\n");
  if (begin == std::string::npos) return {page.size(), page.size()};
  return {begin, std::min(page.find("\n## ", begin), page.size() - 1) + 1};
}

// Rows that say the same of several calls are one row.
struct Row {
  Outcome outcome;
  std::string calls;

  bool Says(const Outcome& other) const {
    const auto words = [](const Outcome& of) { return std::tie(of.function, of.result, of.logged, of.pen, of.advice); };
    return words(outcome) == words(other);
  }
};

}  // namespace

std::string PageSection(const std::string& page, const std::string& heading) {
  const auto [begin, end] = Place(page, heading);
  return page.substr(begin, end - begin);
}

void ReplaceSection(std::string& page, const std::string& heading, const std::string& section) {
  const auto [begin, end] = Place(page, heading);
  page.replace(begin, end - begin, begin == page.size() ? "\n" + section : section);
}

std::string FaultSection(const std::string& heading, const std::vector<Outcome>& outcomes) {
  std::vector<Row> rows;
  for (size_t i = 0; i < outcomes.size(); ++i) {
    auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& known) { return known.Says(outcomes[i]); });
    if (row == rows.end()) row = rows.insert(row, {outcomes[i], ""});
    row->calls += (row->calls.empty() ? "" : ", ") + std::to_string(i + 1);
  }
  std::string text = heading +
                     "\n\n| pen function | at call | result | log | pen afterwards | what the user does |\n"
                     "|---|---|---|---|---|---|\n";
  for (const Row& row : rows) {
    text += "| `" + row.outcome.function + "` | " + row.calls + " | " + std::to_string(row.outcome.result) + " | " +
            (row.outcome.logged.empty() ? "" : "`" + row.outcome.logged + "`") + " | " + row.outcome.pen + " | " +
            row.outcome.advice + " |\n";
  }
  return text;
}
