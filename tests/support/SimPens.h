// Simulated pens in a folder of their own, on a clock that does not wait; in force from construction to destruction.
#ifndef QUARVEL_TESTS_SUPPORT_SIMPENS_H
#define QUARVEL_TESTS_SUPPORT_SIMPENS_H

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/PenBench.h"
#include "tests/support/FakeClock.h"
#include "tests/support/TempFolder.h"

class SimPens {
 public:
  using Json = nlohmann::ordered_json;
  // Called before each pen function; a non-zero answer fails the call.
  using Hook = std::function<int32_t(int32_t number, const std::string& function, int32_t penHandle)>;

  SimPens() {
    pbReset();
    // A handle that stood for a pen in download mode is never used again in a process, so no two folders share any.
    static int nextHandle = 1;
    m_folder.Write("bench.state", Json{{"nextHandle", nextHandle += 1000}}.dump());
    pbSetFolder(m_folder.path().c_str());
    pbSetClock([](void* clock) { return static_cast<FakeClock*>(clock)->Milliseconds(); },
               [](void* clock, int64_t milliseconds) {
                 static_cast<FakeClock*>(clock)->Sleep(std::chrono::milliseconds(milliseconds));
               },
               &m_clock);
  }
  ~SimPens() {
    pbReset();
    pbSetFolder(nullptr);
  }
  SimPens(const SimPens&) = delete;
  SimPens& operator=(const SimPens&) = delete;

  // Plugs in a pen, given as its file has it; returns its handle.
  int32_t Add(const Json& pen) {
    Check(pbAddPen(pen.dump().c_str()));
    return HandleOf(std::stoull(pen.at("id").get<std::string>(), nullptr, 0));
  }
  void Set(uint64_t id, const std::string& setting, const std::string& value) {
    Check(pbSet(id, setting.c_str(), value.c_str()));
  }

  Json Pen(uint64_t id) const {
    std::string text(static_cast<size_t>(pbShowPen(id, nullptr, 0)) + 1, '\0');
    pbShowPen(id, text.data(), static_cast<int32_t>(text.size()));
    return Json::parse(text.c_str());
  }
  // 0 while the pen is off the bus.
  int32_t HandleOf(uint64_t id) const { return Pen(id).at("handle"); }
  // What a pen holds, in short: "8.9.15.b2; settings 2.0.1 (System 2.0); writer 3.1.0 (Notes 3.1)".
  std::string Contents(uint64_t id) const {
    const Json pen = Pen(id);
    std::string text = pen.at("firmware");
    for (const Json& penlet : pen.at("penlets")) {
      text += "; " + penlet.at("guid").get<std::string>() + " " + penlet.at("version").get<std::string>() + " (" +
              penlet.at("group").get<std::string>() + " " + penlet.at("groupVersion").get<std::string>() + ")";
    }
    return text;
  }

  void OnCall(Hook hook) {
    m_hook = std::move(hook);
    pbSetHook([](void* context, int32_t number, const char* function,
                 int32_t penHandle) { return (*static_cast<Hook*>(context))(number, function, penHandle); },
              &m_hook);
  }
  // The calls so far, without their results: "pcStartObex".
  std::vector<std::string> Calls() const {
    std::vector<std::string> calls;
    for (int32_t i = 1; i <= pbCallCount(); ++i) {
      std::string text(100, '\0');
      pbCall(i, text.data(), static_cast<int32_t>(text.size()));
      calls.push_back(text.substr(0, text.find('(')));
    }
    return calls;
  }

  FakeClock& clock() { return m_clock; }
  const TempFolder& folder() const { return m_folder; }

 private:
  static void Check(int32_t error) {
    if (error != 0) throw std::runtime_error(pbErrorText(error));
  }

  TempFolder m_folder;
  FakeClock m_clock;
  Hook m_hook;
};

#endif
