#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "desk/LostPens.h"
#include "desk/PenList.h"
#include "desk/Text.h"
#include "host/Commands.h"
#include "host/InstallPlan.h"
#include "host/Loading.h"
#include "host/PenReturn.h"
#include "host/RunSummary.h"
#include "host/Session.h"
#include "host/When.h"
#include "platform/Tessvik.h"

namespace {

// A bundle and certificates on the command line count; otherwise those of the run in which the pen was lost.
InstallOrder OrderFor(const Options& options, const InstallOrder& kept) {
  InstallOrder order = kept;
  if (!options.bundle.empty()) order = {options.bundle, options.choice};
  if (!options.choice.certificates.empty()) order.choice.certificates = options.choice.certificates;
  if (!order.bundle.empty() && !order.choice.certificates.empty()) return order;
  throw Failure(ExitStatus::kUsage,
                "No run that is kept here tells what the pen was to get; name the bundle and --cert FILE.");
}

bool IsNamed(const Options& options, const std::string& id) {
  auto same = [&id](uint64_t each) { return PenIdText(each) == id; };
  return std::any_of(options.pens.begin(), options.pens.end(), same);
}

// What the last install of the pen here was to bring, whatever became of it.
InstallOrder LastOrder(const std::vector<RunRecord>& runs, const std::string& id) {
  for (const RunRecord& run : runs) {
    for (const PenRecord& pen : run.pens) {
      if (pen.id == id && !pen.order.bundle.empty()) return pen.order;
    }
  }
  return {};
}

// Of the pens that nobody names those are waited for that the last of the runs lost; others are served when they are
// connected, since nobody waits for a pen that was given away a year ago.
std::list<Patient> FindPatients(Session& session) {
  const Options& options = session.options();
  std::vector<RunRecord> runs = session.history().Find({});
  std::vector<LostPen> lost = LostPens(runs);
  std::list<Patient> patients;
  for (const LostPen& pen : lost) {
    if (!options.pens.empty() && !IsNamed(options, pen.id)) continue;
    bool awaited = !options.pens.empty() || pen.folder == lost.front().folder;
    session.console().Line(fmt::format("Pen {} was lost at {}: {}. It was to get {}.", pen.id, WhenText(pen.when, true),
                                       pen.how, Printable(pen.order.bundle)));
    patients.push_back({pen.id, OrderFor(options, pen.order), awaited});
  }
  for (uint64_t id : options.pens) {
    std::string text = PenIdText(id);
    auto known = [&text](const Patient& patient) { return patient.id == text; };
    if (std::any_of(patients.begin(), patients.end(), known)) continue;
    patients.push_back({text, OrderFor(options, LastOrder(runs, text)), true});
  }
  std::vector<Pen> connected = ConnectedPens();
  bool stranger = patients.empty() && std::any_of(connected.begin(), connected.end(), IsAnonymous);
  if (stranger) patients.push_back({"", OrderFor(options, {}), true});
  return patients;
}

void RequireBundle(const Patient& patient) {
  std::error_code unknown;
  if (std::filesystem::exists(patient.order.bundle, unknown)) return;
  throw Failure(ExitStatus::kBundle,
                fmt::format("The bundle {} that pen {} was to get is not there any more; name it, as in `quarvel "
                            "recover BUNDLE --pen {}`.",
                            patient.order.bundle, patient.id, patient.id));
}

// Installs what the pen lacks, then what an install by comparison cannot bring, and looks that all is there.
class Repair {
 public:
  Repair(Session& session, Patient patient)
      : m_session(session),
        m_patient(std::move(patient)),
        m_configuration(std::make_shared<const Configuration>(m_patient.order.choice)),
        m_bundle(LoadTelling(session, m_patient.order.bundle, *m_configuration)),
        m_planner(std::make_shared<InstallPlan>(m_patient.order.bundle, m_patient.order.choice)) {}

  ExitStatus Run(Pen pen) {
    TellStep(m_session, m_patient.id, "found", fmt::format("Pen {} is there, {}.", m_patient.id, StateWords(pen)));
    RunEnd end = Install(pen, m_configuration, m_bundle);
    if (end.code < 0) return end.status;
    pen = Read();
    if (!m_planner->HoldsGroups(pen) && TakesApps()) {
      TellStep(m_session, m_patient.id, "groups",
               "The group of an application was not raised; its applications go again.");
      end = ForceApps(pen);
      if (end.code < 0) return end.status;
      pen = Read();
    }
    bool whole = m_planner->HoldsPackages(pen) && (m_planner->HoldsGroups(pen) || !TakesApps());
    if (!whole) {
      throw Failure(ExitStatus::kVerification,
                    fmt::format("Pen {} still does not hold everything; `quarvel install --plan` tells what it lacks.",
                                m_patient.id));
    }
    TellStep(m_session, m_patient.id, "recovered",
             fmt::format("Pen {} is recovered: it holds everything that it was to get.", m_patient.id));
    return ExitStatus::kDone;
  }

 private:
  static std::string StateWords(const Pen& pen) {
    return pen.state == pcPenStateFirmwareDownload ? "in download mode, waiting for its firmware"
                                                   : "in normal operation";
  }
  bool TakesApps() const { return ((**m_configuration).flags & insFlagApps) != 0; }

  RunEnd Install(const Pen& pen, std::shared_ptr<const Configuration> configuration,
                 std::shared_ptr<const LoadedBundle> bundle) {
    Job job = InstallJob(m_patient.order.bundle, std::move(bundle), std::move(configuration));
    job.command = "recover";
    job.expect = [planner = m_planner](const Pen& each) { return planner->PackagesFor(each); };
    return m_session.RunOnPens({pen}, job).front();
  }

  RunEnd ForceApps(const Pen& pen) {
    InstallChoice choice = m_patient.order.choice;
    choice.firmware = false;
    choice.apps = true;
    choice.force = true;
    auto configuration = std::make_shared<const Configuration>(choice);
    return Install(pen, configuration, LoadTelling(m_session, m_patient.order.bundle, *configuration));
  }

  // The pen as it is now; it has a new handle after its firmware was replaced.
  Pen Read() {
    Pen pen = SelectPens({*ParsePenId(m_patient.id)}, false).front();
    ReadContents(pen);
    if (pen.contents) return pen;
    throw Failure(ExitStatus::kPen,
                  fmt::format("Pen {} cannot be read; reconnect it and run `quarvel recover` again.", m_patient.id));
  }

  Session& m_session;
  Patient m_patient;
  std::shared_ptr<const Configuration> m_configuration;
  std::shared_ptr<const LoadedBundle> m_bundle;
  std::shared_ptr<InstallPlan> m_planner;
};

}  // namespace

ExitStatus RecoverCommand(const Options& options) {
  return Session::Serve(options, "recover", [](Session& session) {
    std::list<Patient> patients = FindPatients(session);
    if (patients.empty()) {
      session.console().Line("No pen is in download mode, and no run that is kept here left one half-way.");
      return ExitStatus::kDone;
    }
    ExitStatus status = ExitStatus::kDone;
    PenReturn bus(session);
    while (auto next = bus.Next(patients)) {
      ExitStatus of = session.Attempt([&] {
        RequireBundle(next->first);
        session.KeepOrder(next->first.order);
        return Repair(session, next->first).Run(next->second);
      });
      if (status == ExitStatus::kDone) status = of;
    }
    for (const Patient& patient : patients) {
      session.console().Line(fmt::format("Pen {} is not connected; connect it and run `quarvel recover --pen {}`.",
                                         patient.id, patient.id));
    }
    return status;
  });
}
