#include "desk/LostPens.h"

#include <fmt/format.h>

#include <set>

namespace {

bool Installs(const RunRecord& run) {
  return run.command == "install" || run.command == "recover";
}

std::string HowItEnded(const PenRecord& pen) {
  if (!pen.HasEnded()) return "the run was ended by force";
  return fmt::format("{}; the pen was left {}", TextOf(pen.code).meaning, pen.left);
}

}  // namespace

std::vector<LostPen> LostPens(const std::vector<RunRecord>& runs) {
  std::vector<LostPen> lost;
  std::set<std::string> seen;
  for (const RunRecord& run : runs) {
    // Of a pen that is in a run twice the later one counts.
    for (auto pen = run.pens.rbegin(); Installs(run) && pen != run.pens.rend(); ++pen) {
      if (!seen.insert(pen->id).second || run.running) continue;
      bool halfWay = !pen->HasEnded() || !pen->left.empty();
      if (halfWay) lost.push_back({pen->id, pen->began, HowItEnded(*pen), pen->order});
    }
  }
  return lost;
}
