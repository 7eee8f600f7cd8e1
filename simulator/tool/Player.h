// Makes the calls of a recording on pens built as the recording saw them: the pens come and go when it shows them come
// and go, time goes by as it did without being waited for, and calls that failed for a reason that lies in the pens
// fail again. Played on one thread, in the order in which the calls ended.
#ifndef QUARVEL_SIMULATOR_TOOL_PLAYER_H
#define QUARVEL_SIMULATOR_TOOL_PLAYER_H

#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/Tessvik.h"
#include "simulator/tool/SeenPens.h"
#include "trace/Recording.h"

namespace simtool {

// What came of one call.
struct Played {
  size_t call = 0;  // its place in the recording
  int64_t result = 0;
  std::string difference{};  // in words, empty where there is none
  bool isGiven = false;      // the failure was given to the pens
};

// A failure of a call, beside those of the recording.
struct ChosenFault {
  std::string function{};
  int32_t call = 0;  // from 1, 0 for all
  int32_t error = 0;
};

class Player {
 public:
  // Works in `folder`, which must be empty.
  Player(const trace::Recording& recording, SeenPens& seen, std::filesystem::path folder);
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;
  ~Player();

  void Choose(const ChosenFault& fault) { m_chosen = fault; }
  // Gives no failures to the pens: every one is then a difference.
  void GiveNone() { m_givesNone = true; }

  // Plays everything, again and again until the pens have the failures that only pens can have.
  std::vector<Played> Play();

 private:
  struct Watch;

  bool PlayOnce(std::vector<Played>& played);
  void BuildPens(int round);
  void MoveBus(size_t call);
  void Release(size_t call);
  Played PlayCall(size_t call);
  std::string Compare(const trace::Recorded& call, const Played& played, const Json& out);
  bool MustBeGiven(const trace::Recorded& call) const;
  bool IsOwnNumber(const trace::Recorded& call) const;

  int32_t Pen(int32_t recorded) const;
  int32_t Channel(const trace::Recorded& call) const;
  std::string FileFor(size_t call);

  int64_t Make(size_t call, Json& out);
  int64_t MakeLook(const trace::Recorded& call, Json& out);
  int64_t MakeReading(const trace::Recorded& call, Json& out);
  int64_t MakeChange(size_t call, Json& out);
  int64_t GetHandles(const trace::Recorded& call, Json& out);
  int64_t GetId(const trace::Recorded& call, Json& out);
  int64_t StartObex(const trace::Recorded& call, Json& out);
  int64_t SetAttributes(const trace::Recorded& call);

  static int32_t Hook(void* context, int32_t number, const char* function, int32_t pen);

  const std::vector<trace::Recorded>& m_calls;
  const trace::Recording& m_recording;
  SeenPens& m_seen;
  const std::filesystem::path m_folder;
  ChosenFault m_chosen{};
  int32_t m_chosenSeen = 0;
  bool m_givesNone = false;
  std::set<size_t> m_given{};  // calls whose failures the pens were given

  int64_t m_now = 0;                                                      // milliseconds
  std::map<int32_t, int32_t> m_pens{};                                    // handles: recorded, today's
  std::map<int64_t, int32_t> m_channels{};                                // the same for channels
  std::map<int64_t, int64_t> m_channelOwners{};                           // recorded channel, process
  std::map<std::pair<std::string, std::string>, int64_t> m_markOwners{};  // name and id, process
};

}  // namespace simtool

#endif
