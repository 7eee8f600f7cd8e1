#include "simulator/tool/SeenPens.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "platform/Tessvik.h"
#include "simulator/tool/SeenContents.h"

namespace simtool {
namespace {

using trace::Recorded;

// The handles of all pens on the bus, when the call tells them all.
std::optional<std::vector<int32_t>> HandlesIn(const Recorded& call) {
  if (call.function != "pcGetPenHandles" || !call.out.contains("handles")) return std::nullopt;
  std::vector<int32_t> handles;
  for (const Json& handle : call.out["handles"]) {
    if (handle.is_number()) handles.push_back(handle.get<int32_t>());
  }
  if (call.result != static_cast<int64_t>(handles.size())) return std::nullopt;
  return handles;
}

bool Succeeded(const Recorded& call) {
  return call.hasEnded && (call.result == 0 || (call.function == "pcEnumeratePen" && call.result == 1));
}

bool IsAt(const Stay& stay, size_t call) {
  return stay.from <= call && call < stay.until;
}

}  // namespace

SeenPens::SeenPens(const trace::Recording& recording) : m_calls(recording.calls) {
  FindStays();
  NoteModes();
  FindPens();
  for (SeenPen& pen : m_pens) {
    FindFiles(pen);
    Describe(pen);
  }
}

const SeenPen* SeenPens::PenAt(int32_t handle, size_t call) const {
  for (const SeenPen& pen : m_pens) {
    for (const Stay& stay : pen.stays) {
      if (stay.handle == handle && IsAt(stay, call)) return &pen;
    }
  }
  return nullptr;
}

uint64_t SeenPens::IdFor(const std::string& told) {
  const auto found = m_ids.find(told);
  if (found != m_ids.end()) return found->second;
  constexpr uint64_t firstMasked = 0x7e55000000000001;
  uint64_t id = firstMasked + m_ids.size();
  if (told.starts_with("0x")) {
    try {
      id = std::stoull(told, nullptr, 16);
    } catch (const std::exception&) {
    }
  }
  return m_ids[told] = id;
}

std::string SeenPens::ToldId(uint64_t id) const {
  for (const auto& [told, number] : m_ids) {
    if (number == id) return told;
  }
  return "";
}

void SeenPens::FindStays() {
  std::map<int32_t, size_t> open;  // handle, place in m_stays
  const auto show = [&](int32_t handle, size_t call) {
    if (handle == 0 || open.contains(handle)) return;
    open[handle] = m_stays.size();
    m_stays.push_back({handle, call});
  };
  for (size_t i = 0; i < m_calls.size(); ++i) {
    if (m_calls[i].pen != 0 && Succeeded(m_calls[i])) show(m_calls[i].pen, i);
    const std::optional<std::vector<int32_t>> handles = HandlesIn(m_calls[i]);
    if (!handles) continue;
    for (const int32_t handle : *handles) show(handle, i);
    std::erase_if(open, [&](const auto& entry) {
      const bool isGone = std::find(handles->begin(), handles->end(), entry.first) == handles->end();
      if (isGone) m_stays[entry.second].until = i;
      return isGone;
    });
  }
}

void SeenPens::NoteModes() {
  for (Stay& stay : m_stays) {
    const size_t end = std::min(stay.until, m_calls.size());
    for (size_t i = stay.from; i < end; ++i) {
      const Recorded& call = m_calls[i];
      if (call.pen != stay.handle || !Succeeded(call)) continue;
      if (call.function == "pcDfuDownload") stay.inDownloadMode = true;
      if (call.function != "pcGetPenState") continue;
      stay.inDownloadMode = call.out.value("state", Json(0)) == Json(int32_t{pcPenStateFirmwareDownload});
      break;
    }
  }
}

std::string SeenPens::IdToldIn(const Stay& stay) const {
  const size_t end = std::min(stay.until, m_calls.size());
  for (size_t i = stay.from; i < end; ++i) {
    const Recorded& call = m_calls[i];
    if (call.pen == stay.handle && call.function == "pcGetPenId" && Succeeded(call))
      return trace::TextOf(call.out, "id");
  }
  return "";
}

void SeenPens::FindPens() {
  for (const Stay& stay : m_stays) PenOf(stay).stays.push_back(stay);
}

// A pen that tells its id is that pen; one that does not is the one that was sent away to come back without.
SeenPen& SeenPens::PenOf(const Stay& stay) {
  const std::string told = IdToldIn(stay);
  if (told.empty()) return PenThatReturns(stay);
  for (SeenPen& pen : m_pens) {
    if (pen.told == told) return pen;
  }
  return m_pens.emplace_back(SeenPen{IdFor(told), told});
}

// The thread that sent it away is the one that goes on with it.
SeenPen& SeenPens::PenThatReturns(const Stay& stay) {
  const auto isAway = [&](const SeenPen& pen) { return !pen.stays.empty() && pen.stays.back().until <= stay.from; };
  const size_t end = std::min(stay.until, m_calls.size());
  int64_t thread = 0;
  for (size_t i = stay.from; i < end && thread == 0; ++i) {
    if (m_calls[i].pen == stay.handle && m_calls[i].function == "pcDfuDownload") thread = m_calls[i].thread;
  }
  SeenPen* latest = nullptr;
  for (size_t i = 0; i < stay.from; ++i) {
    const bool sendsAway = m_calls[i].function == "pcDfuDetach" || m_calls[i].function == "pcDfuDownload";
    if (!sendsAway || !Succeeded(m_calls[i])) continue;
    if (thread != 0 && m_calls[i].thread != thread) continue;
    for (SeenPen& pen : m_pens) {
      if (isAway(pen) && pen.stays.back().handle == m_calls[i].pen) latest = &pen;
    }
  }
  if (latest) return *latest;
  return m_pens.emplace_back(SeenPen{IdFor("handle " + std::to_string(stay.handle))});
}

std::vector<size_t> SeenPens::CallsOf(const SeenPen& pen) const {
  std::vector<size_t> calls;
  for (const Stay& stay : pen.stays) {
    const size_t end = std::min(stay.until, m_calls.size());
    for (size_t i = stay.from; i < end; ++i) {
      if (m_calls[i].pen == stay.handle && m_calls[i].within == 0 && m_calls[i].hasEnded) calls.push_back(i);
    }
  }
  return calls;
}

void SeenPens::FindFiles(const SeenPen& pen) {
  const std::vector<size_t> calls = CallsOf(pen);
  for (const size_t call : calls) {
    const std::string& function = m_calls[call].function;
    if (function == "pcInstallPenlet") m_files[call] = AppFile(m_calls, calls, call);
    if (function == "pcDfuDownload") m_files[call] = FirmwareFile(m_calls, calls, call);
  }
}

void SeenPens::Describe(SeenPen& pen) {
  const std::vector<size_t> calls = CallsOf(pen);
  pen.file = {{"id", "0x" + ToHex(pen.id)}};
  DescribePen(m_calls, calls, pen.file);
  DescribeContents(m_calls, calls, m_files, pen.file);
}

}  // namespace simtool
