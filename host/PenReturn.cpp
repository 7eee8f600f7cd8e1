#include "host/PenReturn.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "desk/Text.h"
#include "platform/Tessvik.h"

namespace {

// "Pen 0x...", or of several "Pens 0x... and 0x...".
std::string NamesOf(const std::list<Patient>& patients) {
  std::vector<std::string> ids;
  for (const Patient& patient : patients) {
    if (patient.awaited) ids.push_back(patient.id);
  }
  if (ids.size() == 1) return ids.front().empty() ? "The pen" : "Pen " + ids.front();
  return fmt::format("Pens {}", fmt::join(ids, " and "));
}

bool IsAwaited(const Patient& patient) {
  return patient.awaited;
}

}  // namespace

bool IsAnonymous(const Pen& pen) {
  return !pen.id && pen.state == pcPenStateFirmwareDownload;
}

void TellStep(Session& session, const std::string& id, std::string_view step, const std::string& words) {
  session.console().Line(words);
  session.events().Write(
      "recover",
      {{"pen", id.empty() ? Json(nullptr) : Json(id)}, {"step", step}, {"meaning", words}, {"time", TimeText()}});
}

PenReturn::PenReturn(Session& session) : m_session(session) {
  for (const Pen& pen : ConnectedPens()) {
    if (pen.id) m_before.insert(*pen.id);
    if (IsAnonymous(pen)) m_anonymous.insert(pen.handle);
  }
}

std::optional<std::pair<Patient, Pen>> PenReturn::TakeFrom(std::list<Patient>& patients, const std::vector<Pen>& pens) {
  for (auto patient = patients.begin(); patient != patients.end(); ++patient) {
    auto pen = std::find_if(pens.begin(), pens.end(), [&](const Pen& each) {
      if (!each.id) return false;
      return patient->id.empty() ? !m_before.contains(*each.id) : PenIdText(*each.id) == patient->id;
    });
    if (pen == pens.end()) continue;
    std::pair<Patient, Pen> found{*patient, *pen};
    found.first.id = IdText(*pen);
    patients.erase(patient);
    return found;
  }
  return std::nullopt;
}

std::optional<std::pair<Patient, Pen>> PenReturn::Next(std::list<Patient>& patients) {
  uint32_t seconds = m_session.options().wait;
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (bool first = true; std::chrono::steady_clock::now() < end || first; first = false) {
    std::vector<Pen> pens = ConnectedPens();
    if (auto found = TakeFrom(patients, pens)) return found;
    if (std::none_of(patients.begin(), patients.end(), IsAwaited)) return std::nullopt;
    if (first) Ask(patients);
    Watch(pens);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
  throw Failure(ExitStatus::kPen,
                fmt::format("{} did not come back within {} s. {}", NamesOf(patients), seconds,
                            m_cameAgain ? "A pen starts in download mode each time, and no install can be begun on a "
                                          "pen that tells no id: its maker must help."
                                        : "Connect it and run `quarvel recover` again."));
}

void PenReturn::Ask(const std::list<Patient>& patients) const {
  auto awaited = std::find_if(patients.begin(), patients.end(), IsAwaited);
  std::string name = NamesOf(patients);
  bool several = name.starts_with("Pens");
  std::string words =
      m_anonymous.empty()
          ? fmt::format("{} {} not connected. Connect {} and switch {} on.", name, several ? "are" : "is",
                        several ? "one" : "it", several ? "it" : "it")
          : fmt::format(
                "A pen{} is in download mode and cannot tell its id. Disconnect it, wait a moment, and connect "
                "it again.",
                awaited->id.empty() ? "" : fmt::format(", perhaps {},", awaited->id));
  TellStep(m_session, awaited->id, "reconnect", words);
}

// Tells what changes on the bus meanwhile.
void PenReturn::Watch(const std::vector<Pen>& pens) {
  std::set<int32_t> now;
  for (const Pen& pen : pens) {
    if (IsAnonymous(pen)) now.insert(pen.handle);
  }
  bool left = std::any_of(m_anonymous.begin(), m_anonymous.end(), [&](int32_t each) { return !now.contains(each); });
  bool came = std::any_of(now.begin(), now.end(), [&](int32_t each) { return !m_anonymous.contains(each); });
  if (left) TellStep(m_session, "", "left", "The pen in download mode has left; connect it again.");
  if (came) {
    m_cameAgain = true;
    TellStep(m_session, "", "download", "A pen came, but in download mode again and without its id.");
  }
  m_anonymous = now;
}
