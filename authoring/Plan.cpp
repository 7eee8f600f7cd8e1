#include "authoring/Plan.h"

#include <fmt/format.h>

#include <algorithm>

#include "Common/StringUtil.h"
#include "authoring/Info.h"
#include "authoring/LoadedBundle.h"
#include "installer/updater/InstallDecisions.h"

namespace authoring {

using nlohmann::json;

namespace {

const char* ToText(PlannedAction action) {
  switch (action) {
    case PlannedAction::kInstall:
      return "install";
    case PlannedAction::kSkip:
      return "skip";
    case PlannedAction::kFail:
      return "fail";
    default:
      return "undecided";
  }
}

std::string VersionText(const std::string& version, int32_t build) {
  return build == 0 ? version : fmt::format("{} ({})", version, build);
}

std::string Reason(const InstallDecision& decision, const BundlePackage& package, const PenDescription& pen) {
  const auto found = pen.penlets.find(package.guid);
  const PenletInfo penlet = found == pen.penlets.end() ? PenletInfo{} : found->second;
  const std::string onPen =
      package.type == BndPakFirmware ? pen.firmware : VersionText(FieldText(penlet.version), penlet.buildNumber);
  switch (decision.reason) {
    case InstallReason::kNotCompared:
      return "it is not compared with the pen";
    case InstallReason::kNotOnPen:
      return "the pen does not have it";
    case InstallReason::kOtherGroup:
      return fmt::format("the pen has it in the group \"{}\"", FieldText(penlet.groupName));
    case InstallReason::kNewerVersion:
      return fmt::format("the pen has the older version {}", onPen);
    case InstallReason::kOlderGroup:
      return fmt::format("the pen has its group in the newer version {}", FieldText(penlet.groupVersion));
    case InstallReason::kSameFirmware:
    case InstallReason::kSameVersion:
      return "the pen has the same version";
    default:
      return fmt::format("the pen has the newer version {}", onPen);
  }
}

// The packages that the pen's type gets, in transfer order, and how the run goes through them.
class Run {
 public:
  Run(CBundle& bundle, const PenDescription& pen, const PlanChoice& choice) : m_pen(pen), m_force(choice.force) {
    bundle.GetPenPackages(pen.type, choice.group, m_packages, nullptr, choice.firmware, choice.applications);
    m_afterFirmware = std::find_if(m_packages.begin(), m_packages.end(),
                                   [](const BundlePackage* package) { return package->type != BndPakFirmware; }) -
                      m_packages.begin();
    if (pen.id.empty()) {
      m_result = insPenFailure;
    } else if (m_packages.empty()) {
      m_result = insNoResource;
    } else if (pen.isReadable && !m_force && !NeedToUpdate(m_packages, pen.Contents())) {
      m_result = insNothingToDo;
    }
  }

  InsResCode result() const { return m_result; }
  bool Selects(const BundlePackage* package) const {
    return std::find(m_packages.begin(), m_packages.end(), package) != m_packages.end();
  }

  PlannedPackage Judge(const BundlePackage* package) const {
    if (m_result == insPenFailure) {
      return {package, PlannedAction::kFail,
              "a pen that tells no id is not installed on; disconnect it and connect it again"};
    }
    const auto place = std::find(m_packages.begin(), m_packages.end(), package);
    if (place == m_packages.end()) {
      return {package, PlannedAction::kSkip,
              CBundle::MatchPenType(*package->group, m_pen.type)
                  ? "it is not asked for"
                  : fmt::format("its group is not for pens of type {}", m_pen.type)};
    }
    return place - m_packages.begin() < m_afterFirmware ? JudgeFirmware(package) : JudgeApplication(package);
  }

 private:
  // Firmware before everything else, which a pen in download mode takes whatever its version.
  PlannedPackage JudgeFirmware(const BundlePackage* package) const {
    if (!m_pen.isReadable) return {package, PlannedAction::kInstall, "the pen waits for firmware"};
    return Compare(package);
  }

  PlannedPackage JudgeApplication(const BundlePackage* package) const {
    if (package->type == BndPakUnknown) {
      if (m_result != insSuccess)
        return {package, PlannedAction::kSkip, "nothing else is new, so the run ends before it"};
      return {package, PlannedAction::kFail,
              fmt::format("its file type is none that a pen takes ({})", static_cast<int>(insUnknownPackage))};
    }
    if (!m_pen.isReadable && !m_force) {
      return {package, PlannedAction::kUndecided, "the pen is asked once its firmware is in"};
    }
    PlannedPackage planned = Compare(package);
    if (package->type == BndPakFirmware && planned.action == PlannedAction::kInstall) {
      planned.action = PlannedAction::kFail;
      planned.reason += ", but firmware that comes after an application is refused";
    }
    return planned;
  }

  PlannedPackage Compare(const BundlePackage* package) const {
    if (m_force) return {package, PlannedAction::kInstall, "it is forced"};
    const InstallDecision decision = DecideInstall(*package, m_pen.Contents());
    const bool installs = m_result == insSuccess && decision.Installs();
    return {package, installs ? PlannedAction::kInstall : PlannedAction::kSkip, Reason(decision, *package, m_pen),
            m_result == insSuccess && decision.record == InstallRecord::kGroupOnly};
  }

  const PenDescription& m_pen;
  bool m_force;
  std::vector<BundlePackage*> m_packages;
  std::ptrdiff_t m_afterFirmware = 0;  // the first that is not leading firmware
  InsResCode m_result = insSuccess;
};

const char* Meaning(const Plan& plan) {
  return plan.result == insSuccess ? "the bundle brings something new" : TextOf(plan.result).meaning;
}

}  // namespace

Plan MakePlan(CBundle& bundle, const PenDescription& pen, const PlanChoice& choice) {
  const Run run(bundle, pen, choice);
  Plan plan{run.result(), {}, 0, false};
  std::vector<BundlePackage*> all;
  bundle.GetPenPackages(0, "", all, nullptr, true, true);
  for (const BundlePackage* package : all) {
    plan.packages.push_back(run.Judge(package));
    plan.packages.back().selected = run.Selects(package);
    if (plan.packages.back().action != PlannedAction::kInstall) continue;
    plan.bytes += static_cast<uint32_t>(package->fileSize);
    plan.firmware = plan.firmware || package->type == BndPakFirmware;
  }
  return plan;
}

bool HoldsGroups(CBundle& bundle, const PenDescription& pen, const PlanChoice& choice) {
  std::vector<BundleGroup*> groups;
  bundle.GetPenGroups(pen.type, choice.group, groups);
  return std::none_of(pen.penlets.begin(), pen.penlets.end(), [&groups](const auto& entry) {
    const PenletInfo& penlet = entry.second;
    return std::any_of(groups.begin(), groups.end(), [&penlet](const BundleGroup* group) {
      return group->name == FieldText(penlet.groupName) &&
             CStringUtil::CompareVersion(group->version, FieldText(penlet.groupVersion)) > 0;
    });
  });
}

json DescribePlan(const Plan& plan, const PenDescription& pen) {
  json packages = json::array();
  for (const PlannedPackage& planned : plan.packages) {
    packages.push_back({{"file", planned.package->bundlePath},
                        {"name", planned.package->name},
                        {"guid", planned.package->guid},
                        {"version", planned.package->version},
                        {"build", planned.package->buildNumber},
                        {"group", planned.package->group->name},
                        {"action", ToText(planned.action)},
                        {"reason", planned.reason},
                        {"raisesGroup", planned.raisesGroup}});
  }
  return {{"id", pen.id.empty() ? json() : json(pen.id)},
          {"name", pen.name},
          {"type", pen.type},
          {"result", plan.result},
          {"meaning", Meaning(plan)},
          {"bytes", plan.bytes},
          {"firmware", plan.firmware},
          {"packages", packages}};
}

std::string PlanText(const Plan& plan, const PenDescription& pen) {
  std::vector<std::vector<std::string>> rows{{"ACTION", "NAME", "VERSION", "GUID", "GROUP", "REASON"}};
  for (const PlannedPackage& planned : plan.packages) {
    const BundlePackage& package = *planned.package;
    rows.push_back({ToText(planned.action), package.name, VersionText(package.version, package.buildNumber),
                    package.guid, package.group->name,
                    planned.raisesGroup ? planned.reason + "; its group's version is raised" : planned.reason});
  }
  return fmt::format("Pen {} \"{}\", type {}, {}: {}.\n{}", pen.id.empty() ? "without an id" : pen.id, pen.name,
                     pen.type, pen.isReadable ? "firmware " + pen.firmware : "in download mode", Meaning(plan),
                     Table(rows));
}

}  // namespace authoring
