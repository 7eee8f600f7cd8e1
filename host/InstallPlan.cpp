#include "host/InstallPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <thread>

#include "authoring/PenFile.h"
#include "desk/Failure.h"
#include "desk/Text.h"
#include "platform/Tessvik.h"

namespace {

using authoring::PenDescription;
using authoring::Plan;
using authoring::PlannedPackage;

// Reads all pens at once, each on a thread of its own.
void ReadAll(std::vector<Pen>& pens) {
  std::vector<std::jthread> threads;
  for (Pen& pen : pens) threads.emplace_back([&pen] { ReadContents(pen); });
}

bool IsReadable(const Pen& pen) {
  return pen.state == pcPenStateFirmwareDownload || (pen.contents && !pen.contents->firmware.empty());
}

PenDescription DescriptionOf(const Pen& pen) {
  PenDescription description;
  if (pen.state == pcPenStateFirmwareDownload || !pen.contents) {
    description.id = pen.id ? PenIdText(*pen.id) : "";
    description.name = pen.name;
    description.type = pen.type.value_or(0);
    return description;
  }
  return authoring::ReadPen(nlohmann::json::parse(ToLine(ToJson(pen))), "the bus");
}

// A mark that another program has set means that it works on the pen.
bool IsInUse(const Pen& pen) {
  constexpr const char* mark = "Install";
  if (!pen.id) return false;
  if (pcRegisterVolatile(mark, *pen.id) != 0) return true;
  pcUnRegisterVolatile(mark, *pen.id);
  return false;
}

std::vector<std::string> ProblemsOf(const Pen& pen, const Plan& plan, size_t connected) {
  std::vector<std::string> problems;
  if (!pen.id) problems.push_back("The pen tells no id; disconnect it and connect it again, or run `quarvel recover`.");
  if (pen.id && !IsReadable(pen)) problems.push_back("The pen cannot be read; reconnect it.");
  if (IsInUse(pen)) problems.push_back("Another program works on the pen; wait for it, or end it.");
  if (plan.firmware && connected > kPensServed) problems.push_back(CrowdProblem(connected));
  return problems;
}

std::string_view NameOf(authoring::PlannedAction action) {
  switch (action) {
    case authoring::PlannedAction::kInstall:
      return "install";
    case authoring::PlannedAction::kSkip:
      return "skip";
    case authoring::PlannedAction::kFail:
      return "fail";
    default:
      return "undecided";
  }
}

PackageRow RowOf(const BundlePackage& package) {
  PackageRow row;
  row.file = FileNameOf(package.bundlePath);
  row.name = package.name;
  row.guid = package.guid;
  row.version = package.version;
  row.group = package.group->name;
  row.fileType = package.fileType;
  return row;
}

std::string PackageLines(const Plan& plan) {
  size_t files = 0;
  size_t versions = 0;
  for (const PlannedPackage& planned : plan.packages) {
    files = std::max(files, FileNameOf(planned.package->bundlePath).size());
    versions = std::max(versions, planned.package->version.size());
  }
  std::string text;
  for (const PlannedPackage& planned : plan.packages) {
    if (!planned.selected) continue;
    text += fmt::format("  {:<{}}  {:<{}}  {:<9}  {}{}\n", Printable(FileNameOf(planned.package->bundlePath)), files,
                        Printable(planned.package->version), versions, NameOf(planned.action),
                        Printable(planned.reason), planned.raisesGroup ? "; its group's version is raised" : "");
  }
  return text;
}

std::string EffortText(const PenPlan& plan, const Rates& rates) {
  std::string text = fmt::format("  to send: {}", BytesText(plan.plan.bytes));
  text += plan.seconds ? fmt::format(", about {} at the rate of {} earlier transfers here", DurationText(*plan.seconds),
                                     rates.Transfers())
                       : ", in a time that no earlier run here tells";
  if (plan.plan.firmware) text += "\n  the pen leaves twice while its firmware is replaced; leave it connected";
  return text + "\n  room on the pen: pens do not tell it\n";
}

}  // namespace

std::string CrowdProblem(size_t connected) {
  return fmt::format(
      "{} pens are connected, and a pen whose firmware is replaced is looked for among {} only: it would be lost. "
      "Disconnect {}, or leave firmware out with --apps.",
      connected, kPensServed, connected - kPensServed);
}

CBundle& InstallPlan::Bundle() {
  if (m_bundle) return *m_bundle;
  auto bundle = std::make_unique<CBundle>();
  InsResCode loaded = bundle->Load(m_file.c_str());
  if (loaded != insSuccess) throw CallFailure(loaded, "");
  m_bundle = std::move(bundle);
  return *m_bundle;
}

authoring::PlanChoice InstallPlan::Choice() const {
  bool both = m_choice.firmware == m_choice.apps;
  return {m_choice.group, both || m_choice.firmware, both || m_choice.apps, m_choice.force};
}

Plan InstallPlan::Judge(const Pen& pen) {
  return authoring::MakePlan(Bundle(), DescriptionOf(pen), Choice());
}

std::vector<PenPlan> InstallPlan::For(std::vector<Pen> pens, size_t connected, const Rates& rates) {
  ReadAll(pens);
  std::vector<PenPlan> plans;
  std::lock_guard<std::mutex> guard(m_lock);
  for (Pen& pen : pens) {
    PenPlan plan{std::move(pen), {}, {}, {}};
    plan.plan = Judge(plan.pen);
    plan.problems = ProblemsOf(plan.pen, plan.plan, connected);
    if (plan.plan.result == insSuccess) plan.seconds = rates.SecondsFor(plan.plan.bytes, plan.plan.firmware);
    plans.push_back(std::move(plan));
  }
  return plans;
}

std::vector<PackageRow> InstallPlan::PackagesFor(const Pen& pen) {
  std::lock_guard<std::mutex> guard(m_lock);
  Pen asIdentified = pen;
  asIdentified.contents.reset();
  std::vector<PackageRow> rows;
  try {
    for (const PlannedPackage& planned : Judge(asIdentified).packages) {
      if (planned.selected) rows.push_back(RowOf(*planned.package));
    }
  } catch (const std::exception&) {
    rows.clear();  // a list that cannot be made is left out
  }
  return rows;
}

bool InstallPlan::HoldsPackages(const Pen& pen) {
  std::lock_guard<std::mutex> guard(m_lock);
  return Judge(pen).result == insNothingToDo;
}

bool InstallPlan::HoldsGroups(const Pen& pen) {
  std::lock_guard<std::mutex> guard(m_lock);
  return pen.contents && authoring::HoldsGroups(Bundle(), DescriptionOf(pen), Choice());
}

InsResCode ResultOf(const PenPlan& plan) {
  return plan.problems.empty() ? plan.plan.result : static_cast<InsResCode>(insPenFailure);
}

std::string PlanText(const PenPlan& plan, const Rates& rates) {
  const Pen& pen = plan.pen;
  std::string text = fmt::format("Pen {}{}", IdText(pen), pen.name.empty() ? "" : ", " + Printable(pen.name));
  if (pen.contents) text += ", firmware " + Printable(pen.contents->firmware);
  if (pen.state == pcPenStateFirmwareDownload) text += ", in download mode";
  text += '\n' + PackageLines(plan.plan);
  for (const std::string& problem : plan.problems) text += fmt::format("  Problem: {}\n", problem);
  if (plan.plan.result == insSuccess) {
    text += EffortText(plan, rates);
  } else if (plan.problems.empty()) {
    text += fmt::format("  {}\n", TextOf(plan.plan.result).meaning);
  }
  text.pop_back();
  return text;
}

Json ToJson(const PenPlan& plan) {
  Json packages = Json::array();
  for (const PlannedPackage& planned : plan.plan.packages) {
    if (!planned.selected) continue;
    const BundlePackage& package = *planned.package;
    packages.push_back({{"file", FileNameOf(package.bundlePath)},
                        {"name", package.name},
                        {"guid", package.guid},
                        {"version", package.version},
                        {"group", package.group->name},
                        {"action", NameOf(planned.action)},
                        {"reason", planned.reason},
                        {"raisesGroup", planned.raisesGroup}});
  }
  return {{"pen", plan.pen.id ? Json(PenIdText(*plan.pen.id)) : Json(nullptr)},
          {"code", ResultOf(plan)},
          {"meaning", TextOf(ResultOf(plan)).meaning},
          {"packages", packages},
          {"bytes", plan.plan.bytes},
          {"firmware", plan.plan.firmware},
          {"secondsExpected", plan.seconds ? Json(*plan.seconds) : Json(nullptr)},
          {"room", nullptr},
          {"problems", plan.problems}};
}
