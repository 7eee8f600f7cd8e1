// What an install of a bundle does to a pen, decided by the functions that the installer itself decides with.
#ifndef QUARVEL_AUTHORING_PLAN_H
#define QUARVEL_AUTHORING_PLAN_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "authoring/PenFile.h"
#include "installer/QuarvelPublic.h"
#include "installer/bundle/Bundle.h"

namespace authoring {

// What an install is told to take, as its configuration has it.
struct PlanChoice {
  std::string group;  // empty: every group
  bool firmware = true;
  bool applications = true;
  bool force = false;
};

enum class PlannedAction {
  kInstall,
  kSkip,
  kFail,       // the run ends with an error here, unless its host skips the package
  kUndecided,  // depends on what the pen holds, which is not known
};

struct PlannedPackage {
  const BundlePackage* package;  // of the loaded bundle
  PlannedAction action;
  std::string reason;
  bool raisesGroup = false;  // the package stays, its group's version on the pen is raised
  bool selected = false;     // it is one that the install comes to
};

struct Plan {
  InsResCode result;  // insSuccess when something is transferred, else what the install gives instead
  std::vector<PlannedPackage> packages;  // all of the bundle, in transfer order
  uint64_t bytes = 0;                    // that are transferred, as far as it is known
  bool firmware = false;                 // some of it is firmware, so that the pen leaves the bus and comes back
};

// The bundle must be loaded, and outlive the plan.
Plan MakePlan(CBundle& bundle, const PenDescription& pen, const PlanChoice& choice = {});

// Whether all applications on the pen stand in their group's version, where the bundle has the group: an install that
// ended early may not have raised those that the bundle does not carry, and a later one does not see it.
bool HoldsGroups(CBundle& bundle, const PenDescription& pen, const PlanChoice& choice);

// {"id","name","type","result","meaning","packages":[...]}
nlohmann::json DescribePlan(const Plan& plan, const PenDescription& pen);
// The same as a line and a table.
std::string PlanText(const Plan& plan, const PenDescription& pen);

}  // namespace authoring

#endif
