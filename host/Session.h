// What a command that works with a bundle or on pens stands on: the signals, the log, the history and its run, the
// events and the console. One per process, made and used in the main thread.
#ifndef QUARVEL_HOST_SESSION_H
#define QUARVEL_HOST_SESSION_H

#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "desk/Events.h"
#include "desk/Failure.h"
#include "desk/History.h"
#include "desk/LogReader.h"
#include "desk/PenRun.h"
#include "host/Console.h"
#include "host/Interrupts.h"
#include "host/Options.h"

class Session {
 public:
  // Makes the session, runs the command's body in it and tells what stops it, to people and as an event.
  static ExitStatus Serve(const Options& options, const std::string& command,
                          const std::function<ExitStatus(Session&)>& body);

  // Does the job on every pen at once and returns the ends, in the order of the pens, when all are done. Ctrl-C stops
  // them; afterwards only the third one still ends the process, so that what became of the pens is told.
  std::vector<RunEnd> RunOnPens(const std::vector<Pen>& pens, const Job& job);

  // Does a part of the command; a Failure that stops it is told, and becomes the status.
  ExitStatus Attempt(const std::function<ExitStatus()>& part);

  // What the pens of the next runs are to get.
  void KeepOrder(const InstallOrder& order);

  const Options& options() const { return m_options; }
  const Console& console() const { return m_console; }
  const LogReader& log() const { return m_log; }
  EventLog& events() { return m_events; }
  History& history() { return m_history; }

 private:
  Session(const Options& options, const std::string& command);
  ~Session();
  template <typename Open>
  auto Opened(Open open) const;
  void TellProblem();

  const Options& m_options;
  Interrupts m_interrupts;  // before whatever starts a thread
  Console m_console;
  History m_history;
  RunFolder m_folder;
  LogReader m_log;
  std::string m_trace;
  std::string m_stopped;  // what stopped the command beside its pens
  std::unique_ptr<KeptRun> m_run;
  EventLog m_events;
  std::ofstream m_keptEvents;
};

#endif
