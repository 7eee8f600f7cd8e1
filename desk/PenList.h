// The pens that are connected, and what they hold, read through the pen library alone. Its answers are input: counts
// are clamped and texts end with their field. Any thread may call these functions.
#ifndef QUARVEL_DESK_PENLIST_H
#define QUARVEL_DESK_PENLIST_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "desk/Json.h"

struct Penlet {
  std::string guid;
  std::string name;
  std::string version;
  int32_t build = 0;
  std::string group;
  std::string groupVersion;
  bool paper = false;  // a paper product, else an application
};

// What a pen holds, as far as it could be read.
struct PenHoldings {
  std::string firmware;  // in the form of a bundle's versions, "8.9.15.b2"; empty when the pen's text has another form
  std::vector<Penlet> penlets;  // in the pen's order
};

struct Pen {
  int32_t handle = 0;
  std::optional<uint64_t> id;  // none in firmware-download mode, for most types of pen
  std::string name;
  std::optional<int32_t> type;
  std::optional<int32_t> state;
  std::optional<PenHoldings> contents;  // none before ReadContents, or when the pen cannot be read
};

// As many pens as the library looks at. It finds no other on the bus again after a firmware download.
constexpr size_t kPensServed = 20;

// The handles of the pens on the bus. Throws a Failure when the pen library cannot tell them.
std::vector<int32_t> PenHandles();
// What a person must know when more pens are connected than the library looks at; else empty.
std::string CrowdNote(size_t pens);
// Every connected pen with its identity; contents are not read.
std::vector<Pen> ConnectedPens();
// The pens with these ids, each once, or every pen that has an id. Throws a Failure for an id that is not connected
// and when there is none to take.
std::vector<Pen> SelectPens(const std::vector<uint64_t>& ids, bool all);
// Opens a channel to the pen and reads what it holds.
void ReadContents(Pen& pen);

// "normal", "download", the number, or "unknown".
std::string StateText(const Pen& pen);
// The pen's id, or words that say why there is none.
std::string IdText(const Pen& pen);
// One pen of `quarvel pens --json`.
Json ToJson(const Pen& pen);

#endif
