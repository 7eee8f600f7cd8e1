// What an install would do to pens, decided by the installer's own functions before anything is touched. The bundle is
// loaded a second time for it, from where the library has unpacked it, when it is first asked for. Any thread may ask.
#ifndef QUARVEL_HOST_INSTALLPLAN_H
#define QUARVEL_HOST_INSTALLPLAN_H

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "authoring/Plan.h"
#include "desk/Json.h"
#include "desk/LoadedBundle.h"
#include "desk/PackageList.h"
#include "desk/PenList.h"
#include "desk/Rates.h"

struct PenPlan {
  Pen pen;
  authoring::Plan plan;               // its packages point into the bundle
  std::vector<std::string> problems;  // that would end the install, or the pen's firmware; each with what to do
  std::optional<uint64_t> seconds;    // that it takes at the rates seen here
};

class InstallPlan {
 public:
  InstallPlan(std::string bundle, InstallChoice choice) : m_file(std::move(bundle)), m_choice(std::move(choice)) {}

  // What happens to the pens, whose contents are read; `connected` is how many pens are on the bus in all.
  std::vector<PenPlan> For(std::vector<Pen> pens, size_t connected, const Rates& rates);
  // Whether the pen, whose contents are read, holds all that the bundle has for it: every package, and the groups'
  // versions, which an install that ended early may not have raised for applications that the bundle does not carry.
  bool HoldsPackages(const Pen& pen);
  bool HoldsGroups(const Pen& pen);
  // The packages that the install comes to on a pen of this type, as a run lists them.
  std::vector<PackageRow> PackagesFor(const Pen& pen);

 private:
  CBundle& Bundle();
  authoring::PlanChoice Choice() const;
  authoring::Plan Judge(const Pen& pen);

  std::string m_file;
  InstallChoice m_choice;
  std::mutex m_lock;  // guards what follows, and the bundle while it is asked
  std::unique_ptr<CBundle> m_bundle;
};

// Why firmware is refused while so many pens are connected.
std::string CrowdProblem(size_t connected);
std::string PlanText(const PenPlan& plan, const Rates& rates);
// The fields of the event "plan".
Json ToJson(const PenPlan& plan);
// The bundle brings something to the pen, or nothing is to be done; otherwise the failure that the install would give.
InsResCode ResultOf(const PenPlan& plan);

#endif
