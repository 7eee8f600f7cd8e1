// What an install of a bundle does to a pen, decided by the functions that the installer itself decides with.
#ifndef QUARVEL_AUTHORING_PLAN_H
#define QUARVEL_AUTHORING_PLAN_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "authoring/LoadedBundle.h"
#include "authoring/PenFile.h"

namespace authoring {

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
};

struct Plan {
  InsResCode result;  // insSuccess when something is transferred, else what the install gives instead
  std::vector<PlannedPackage> packages;  // all of the bundle, in transfer order
};

Plan MakePlan(const LoadedBundle& loaded, const PenDescription& pen);

// {"id","name","type","result","meaning","packages":[...]}
nlohmann::json DescribePlan(const Plan& plan, const PenDescription& pen);
// The same as a line and a table.
std::string PlanText(const Plan& plan, const PenDescription& pen);

}  // namespace authoring

#endif
