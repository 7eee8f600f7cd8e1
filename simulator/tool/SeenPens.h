// The pens that a trace has seen: when each was on the bus and under which handle, what it held when it was first read,
// and what the files were that it was given. Found once, before anything is played; plain values.
#ifndef QUARVEL_SIMULATOR_TOOL_SEENPENS_H
#define QUARVEL_SIMULATOR_TOOL_SEENPENS_H

#include <map>
#include <string>
#include <vector>

#include "simulator/tool/Commands.h"
#include "trace/Recording.h"

namespace simtool {

// Calls are named by their place in the recording.
constexpr size_t kNever = static_cast<size_t>(-1);

// A time on the bus under one handle: the first call that shows the pen there, and the first that shows it gone.
struct Stay {
  int32_t handle = 0;
  size_t from = 0;
  size_t until = kNever;
  bool inDownloadMode = false;
};

struct SeenPen {
  uint64_t id = 0;
  std::string told{};  // the id as the trace tells it, which may be masked; empty for a pen that told none
  std::vector<Stay> stays{};
  Json file{};  // the pen as it was, in the form of its file
};

// A file that a pen was given, as far as one like it can be made: the lines of its head.
struct SeenFile {
  std::vector<std::string> head{};
  int64_t bytes = -1;  // -1 when there was none
};

class SeenPens {
 public:
  explicit SeenPens(const trace::Recording& recording);

  const std::vector<SeenPen>& pens() const { return m_pens; }
  // The pen behind a handle at a call; null for a handle that was not on the bus then.
  const SeenPen* PenAt(int32_t handle, size_t call) const;
  // The file of a transfer.
  const SeenFile& FileOf(size_t call) const { return m_files.at(call); }
  // The number for an id as the trace tells it, and back.
  uint64_t IdFor(const std::string& told);
  std::string ToldId(uint64_t id) const;

 private:
  void FindStays();
  void NoteModes();
  void FindPens();
  void Join(Stay stay);
  SeenPen& PenOf(const Stay& stay);
  SeenPen& PenThatReturns(const Stay& stay);
  std::string IdToldIn(const Stay& stay) const;
  std::vector<size_t> CallsOf(const SeenPen& pen) const;
  void Describe(SeenPen& pen);
  void FindFiles(const SeenPen& pen);

  const std::vector<trace::Recorded>& m_calls;
  std::vector<Stay> m_stays{};
  std::vector<SeenPen> m_pens{};
  std::map<std::string, uint64_t> m_ids{};
  std::map<size_t, SeenFile> m_files{};
};

}  // namespace simtool

#endif
