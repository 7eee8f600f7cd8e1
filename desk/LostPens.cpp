#include "desk/LostPens.h"

#include <fmt/format.h>

#include <set>

namespace {

bool Installs(const RunRecord& run) {
  return run.command == "install" || run.command == "recover";
}

// A run that failed before it touched the pen left it as it was.
bool IsHalfWay(const PenRecord& pen) {
  bool touched = pen.code == insAppFailed || pen.code == insVerifyPenFailed;
  return !pen.HasEnded() || !pen.left.empty() || touched;
}

std::string HowItEnded(const PenRecord& pen) {
  if (!pen.HasEnded()) return "the run was ended by force";
  std::string meaning(TextOf(pen.code).meaning);
  return pen.left.empty() ? meaning : fmt::format("{}; the pen was left {}", meaning, pen.left);
}

}  // namespace

std::vector<LostPen> LostPens(const std::vector<RunRecord>& runs) {
  std::vector<LostPen> lost;
  std::set<std::string> seen;
  for (const RunRecord& run : runs) {
    // Of a pen that is in a run twice the later one counts.
    for (auto pen = run.pens.rbegin(); Installs(run) && pen != run.pens.rend(); ++pen) {
      if (!seen.insert(pen->id).second || run.running) continue;
      if (IsHalfWay(*pen)) lost.push_back({pen->id, run.folder, pen->began, HowItEnded(*pen), pen->order});
    }
  }
  return lost;
}
