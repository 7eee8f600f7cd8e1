// What a command that works with a bundle or on pens stands on: the signals, the log, the run's folder, the events and
// the console. One per process, made and used in the main thread.
#ifndef QUARVEL_HOST_SESSION_H
#define QUARVEL_HOST_SESSION_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/Console.h"
#include "host/Events.h"
#include "host/Failure.h"
#include "host/Interrupts.h"
#include "host/LogReader.h"
#include "host/Options.h"
#include "host/PenRun.h"
#include "host/RunFolder.h"

// A failed call of the library that ends the command: its code and what the log says of it.
class CallFailure : public Failure {
 public:
  CallFailure(InsResCode code, std::string detail)
      : Failure(StatusOf(code), std::string(TextOf(code).meaning)), m_code(code), m_detail(std::move(detail)) {}
  InsResCode Code() const { return m_code; }
  const std::string& Detail() const { return m_detail; }

 private:
  InsResCode m_code;
  std::string m_detail;
};

class Session {
 public:
  // Makes the session, runs the command's body in it and tells what stops it, to people and as an event.
  static ExitStatus Serve(const Options& options, const std::string& command,
                          const std::function<ExitStatus(Session&)>& body);

  // Runs `work` on every pen at once, each on a thread of its own, and returns when all are done. Ctrl-C aborts them;
  // afterwards only the third one still ends the process, so that what became of the pens is told.
  void RunOnPens(const std::vector<std::unique_ptr<PenRun>>& runs, const PenRun::Work& work, Progress& progress);

  // Ends the command when a call of the library on this thread, whose log line is given, did not succeed.
  void Require(InsResCode code, std::string_view function, const std::string& logLine) const;
  // Tells people a failure's meaning, what the log says of it and the remedy.
  void Explain(InsResCode code, const std::string& detail) const;
  // The event that begins a run; without a pen for a command that needs none.
  void WriteRun(const Pen* pen);
  void WriteResult(const Json& pen, InsResCode code, ExitStatus status, const std::string& detail,
                   const std::vector<PackageRow>& packages);

  const Options& options() const { return m_options; }
  const Console& console() const { return m_console; }
  const LogReader& log() const { return m_logReader; }
  const std::string& LogFile() const { return m_logFile; }
  Events& events() { return m_events; }
  Interrupts& interrupts() { return m_interrupts; }

 private:
  Session(const Options& options, const std::string& command);
  void WriteFailure(const Failure& failure);

  const Options& m_options;
  std::string m_command;
  Interrupts m_interrupts;  // before whatever starts a thread
  Console m_console;
  RunFolder m_folder;
  std::string m_logFile;
  LogReader m_logReader;
  Events m_events;
};

// The texts of the certificate files, for the library. Throws a Failure for one that cannot be read.
std::vector<std::string> ReadCertificates(const std::vector<std::string>& files);

#endif
