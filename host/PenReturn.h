// Waits for pens that are to be got back on their feet: leads the person through connecting them anew, tells what
// happens on the bus meanwhile, and gives each as soon as it is there under its id. Used by one thread.
#ifndef QUARVEL_HOST_PENRETURN_H
#define QUARVEL_HOST_PENRETURN_H

#include <list>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "desk/PenList.h"
#include "desk/RunRecord.h"
#include "host/Session.h"

// A pen to get back on its feet. Without an id it is one that is connected in download mode and tells none.
struct Patient {
  std::string id;
  InstallOrder order;
  bool awaited;  // it is waited for; another one is served when it is there
};

// Tells a step to people, and to programs.
void TellStep(Session& session, const std::string& id, std::string_view step, const std::string& words);

class PenReturn {
 public:
  explicit PenReturn(Session& session);

  // Takes the first patient that is connected under its id off the list, waiting while one is awaited. Nothing when
  // none is there and none awaited; throws a Failure when none comes within the time.
  std::optional<std::pair<Patient, Pen>> Next(std::list<Patient>& patients);

 private:
  std::optional<std::pair<Patient, Pen>> TakeFrom(std::list<Patient>& patients, const std::vector<Pen>& pens);
  void Ask(const std::list<Patient>& patients) const;
  void Watch(const std::vector<Pen>& pens);

  Session& m_session;
  std::set<uint64_t> m_before;    // ids on the bus before a pen without one was asked for
  std::set<int32_t> m_anonymous;  // handles of the pens in download mode that tell none
  bool m_cameAgain = false;
};

bool IsAnonymous(const Pen& pen);

#endif
