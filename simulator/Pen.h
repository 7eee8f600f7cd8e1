// A simulated pen as its file has it, and what happens to it as time goes by. Plain values.
#ifndef QUARVEL_SIMULATOR_PEN_H
#define QUARVEL_SIMULATOR_PEN_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Tessvik.h"
#include "simulator/Settings.h"

namespace sim {

struct Penlet {
  std::string guid{};
  std::string name{};
  std::string displayName{};
  std::string version{};
  std::string group{};
  std::string groupVersion{};
  std::string kind = "app";  // or "paper"
  int32_t build = 0;
  uint64_t firstId = 0;  // of the paper
  uint64_t secondId = 0;
  int64_t size = 0;                             // bytes of the pen's room
  std::map<int32_t, std::string> attributes{};  // everything that was written, by number
};

// What a pen is about to do: leave the bus, or come back in a mode.
struct PenEvent {
  int64_t at = 0;  // milliseconds since the epoch
  bool returns = false;
  std::string mode = "normal";
};

// A failure to be had: the `call`-th call of a function in a process, or every call for 0.
struct Fault {
  std::string function;
  int32_t call = 0;
  int32_t error = 0;
};

struct Pen {
  uint64_t id = 0;
  uint64_t reportedId = 0;  // what it tells; differs from `id` after returns-as
  std::string name = "Simulated pen";
  int32_t type = 1;
  std::string firmware = "1.0.0.a1";
  bool connected = true;
  std::string mode = "normal";  // or "download"
  int32_t handle = 0;           // while it is connected
  std::vector<PenEvent> schedule{};
  std::vector<Penlet> penlets{};
  Settings settings{};
  std::vector<Fault> faults{};  // of calls for this pen

  bool InDownloadMode() const { return mode == "download"; }
  // In download mode a pen of type 1 cannot tell its id.
  bool IsAnonymous() const { return InDownloadMode() && type == 1; }
  Penlet* FindPenlet(const std::string& guid);
  // Leaves the bus after leave-time and comes back in the mode after return-time, as far as its settings let it.
  void LeaveAndReturn(int64_t now, const std::string& nextMode);
};

// Both throw Problem: pbErrPenFile for what is no pen, pbErrGuid or pbErrText for a text that no pen could hold.
Pen PenFromJson(const Json& json);
Json PenToJson(const Pen& pen);
Penlet PenletFromJson(const Json& json);
void CheckPenlet(const Penlet& penlet);

// A fault's function is one of the nineteen and its error a number that is not 0; both throw Problem.
Json FaultToJson(const Fault& fault);
Fault FaultFromJson(const Json& json);
void CheckFault(const Fault& fault);
bool IsPenFunction(std::string_view name);

// A file's text. Bytes that are no UTF-8, which applications may bring, become replacement characters.
std::string TextOf(const Json& json);

// "0x2a"; the other way takes decimal numbers too and throws pbErrArgument.
std::string IdText(uint64_t id);
uint64_t ParseId(const std::string& text);

// A firmware version as images have it, "8.9.15.b2": three numbers below 100 and a suffix.
struct Firmware {
  int numbers[3];
  std::string suffix;
};
std::optional<Firmware> ParseFirmware(std::string_view text);

// What the pen library reports.
PenletInfo ToInfo(const Penlet& penlet, const Settings& settings);
PenVersionInfo ToVersionInfo(const Pen& pen);

}  // namespace sim

#endif
