#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "desk/LostPens.h"
#include "desk/PenList.h"
#include "desk/Text.h"
#include "host/Commands.h"
#include "host/InstallPlan.h"
#include "host/Loading.h"
#include "host/RunSummary.h"
#include "host/Session.h"
#include "platform/Tessvik.h"

namespace {

bool IsAnonymous(const Pen& pen) {
  return !pen.id && pen.state == pcPenStateFirmwareDownload;
}

// A pen to get back on its feet. Without an id it is one that is connected in download mode and tells none.
struct Patient {
  std::string id;
  InstallOrder order;
};

// Tells a step to people, and to programs.
void Tell(Session& session, const Patient& patient, std::string_view step, const std::string& words) {
  session.console().Line(words);
  session.events().Write("recover", {{"pen", patient.id.empty() ? Json(nullptr) : Json(patient.id)},
                                     {"step", step},
                                     {"meaning", words},
                                     {"time", TimeText()}});
}

// A bundle and certificates on the command line count; otherwise those of the run in which the pen was lost.
InstallOrder OrderFor(const Options& options, const InstallOrder& kept) {
  InstallOrder order = kept;
  if (!options.bundle.empty()) order = {options.bundle, options.choice};
  if (!options.choice.certificates.empty()) order.choice.certificates = options.choice.certificates;
  if (!order.bundle.empty() && !order.choice.certificates.empty()) return order;
  throw Failure(ExitStatus::kUsage,
                "No run that is kept here tells what the pen was to get; name the bundle and --cert FILE.");
}

std::vector<Patient> FindPatients(Session& session) {
  const Options& options = session.options();
  std::vector<LostPen> lost = LostPens(session.history().Find({}));
  std::vector<Patient> patients;
  for (const LostPen& pen : lost) {
    bool wanted = options.pens.empty() ||
                  std::find(options.pens.begin(), options.pens.end(), *ParsePenId(pen.id)) != options.pens.end();
    if (!wanted) continue;
    session.console().Line(fmt::format("Pen {} was lost at {}: {}. It was to get {}.", pen.id, pen.when, pen.how,
                                       Printable(pen.order.bundle)));
    patients.push_back({pen.id, OrderFor(options, pen.order)});
  }
  for (uint64_t id : options.pens) {
    auto known = [id](const Patient& patient) { return patient.id == PenIdText(id); };
    if (std::any_of(patients.begin(), patients.end(), known)) continue;
    patients.push_back({PenIdText(id), OrderFor(options, {})});
  }
  std::vector<Pen> connected = ConnectedPens();
  auto anonymous = static_cast<size_t>(std::count_if(connected.begin(), connected.end(), IsAnonymous));
  bool stranger = patients.empty() && anonymous > 0;
  if (stranger) patients.push_back({"", OrderFor(options, {})});
  return patients;
}

std::optional<Pen> FindIn(const std::vector<Pen>& pens, const Patient& patient, const std::set<uint64_t>& before) {
  auto pen = std::find_if(pens.begin(), pens.end(), [&](const Pen& each) {
    if (!each.id) return false;
    return patient.id.empty() ? !before.contains(*each.id) : PenIdText(*each.id) == patient.id;
  });
  return pen == pens.end() ? std::nullopt : std::optional<Pen>(*pen);
}

// Leads the person through connecting the pen anew, and sees it come back under its id.
class Return {
 public:
  Return(Session& session, const Patient& patient) : m_session(session), m_patient(patient) {
    for (const Pen& pen : ConnectedPens()) {
      if (pen.id) m_before.insert(*pen.id);
      if (IsAnonymous(pen)) m_anonymous.insert(pen.handle);
    }
  }

  // Throws a Failure when the pen does not come within the time.
  Pen Await() {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(m_session.options().wait);
    for (bool first = true; std::chrono::steady_clock::now() < end || first; first = false) {
      std::vector<Pen> pens = ConnectedPens();
      if (std::optional<Pen> pen = FindIn(pens, m_patient, m_before)) return *pen;
      if (first) Ask();
      Watch(pens);
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    throw Failure(ExitStatus::kPen,
                  fmt::format("{} did not come back within {} s. {}", Name(), m_session.options().wait,
                              m_cameAgain ? "It starts in download mode each time, and no install can "
                                            "be begun on a pen that tells no id: its maker must help."
                                          : "Connect it and run `quarvel recover` again."));
  }

 private:
  std::string Name() const { return m_patient.id.empty() ? "The pen" : "Pen " + m_patient.id; }

  void Ask() {
    Tell(
        m_session, m_patient, "reconnect",
        m_anonymous.empty()
            ? fmt::format("{} is not connected. Connect it and switch it on.", Name())
            : fmt::format("{} is in download mode and cannot tell its id. Disconnect it, wait a moment, and connect it "
                          "again.",
                          m_patient.id.empty() ? "A pen" : "A pen, perhaps " + m_patient.id + ","));
  }

  // Tells what changes on the bus meanwhile.
  void Watch(const std::vector<Pen>& pens) {
    std::set<int32_t> now;
    for (const Pen& pen : pens) {
      if (IsAnonymous(pen)) now.insert(pen.handle);
    }
    bool left = std::any_of(m_anonymous.begin(), m_anonymous.end(), [&](int32_t each) { return !now.contains(each); });
    bool came = std::any_of(now.begin(), now.end(), [&](int32_t each) { return !m_anonymous.contains(each); });
    if (left) Tell(m_session, m_patient, "left", "The pen in download mode has left; connect it again.");
    if (came) {
      m_cameAgain = true;
      Tell(m_session, m_patient, "download", "A pen came, but in download mode again and without its id.");
    }
    m_anonymous = now;
  }

  Session& m_session;
  const Patient& m_patient;
  std::set<uint64_t> m_before;
  std::set<int32_t> m_anonymous;
  bool m_cameAgain = false;
};

// Installs what the pen lacks, then what an install by comparison cannot bring, and looks that all is there.
class Repair {
 public:
  Repair(Session& session, Patient patient)
      : m_session(session),
        m_patient(std::move(patient)),
        m_configuration(std::make_shared<const Configuration>(m_patient.order.choice)),
        m_bundle(LoadTelling(session, m_patient.order.bundle, *m_configuration)),
        m_planner(std::make_shared<InstallPlan>(m_patient.order.bundle, m_patient.order.choice)) {}

  ExitStatus Run() {
    Pen pen = Return(m_session, m_patient).Await();
    m_patient.id = IdText(pen);
    Tell(m_session, m_patient, "found", fmt::format("Pen {} is there, {}.", m_patient.id, StateWords(pen)));
    RunEnd end = Install(pen, m_configuration, m_bundle);
    if (end.code < 0) return end.status;
    pen = Read();
    if (!m_planner->HoldsGroups(pen) && TakesApps()) {
      Tell(m_session, m_patient, "groups", "The group of an application was not raised; its applications go again.");
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
    Tell(m_session, m_patient, "recovered",
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
  return Session::Serve(options, "recover", [&](Session& session) {
    std::vector<Patient> patients = FindPatients(session);
    if (patients.empty()) {
      session.console().Line("No pen is in download mode, and no run that is kept here left one half-way.");
      return ExitStatus::kDone;
    }
    ExitStatus status = ExitStatus::kDone;
    for (Patient& patient : patients) {
      session.KeepOrder(patient.order);
      ExitStatus of = Repair(session, patient).Run();
      if (status == ExitStatus::kDone) status = of;
    }
    return status;
  });
}
