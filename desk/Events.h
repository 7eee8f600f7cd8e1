// What happens in a run, as JSON objects with "schema" and "event", written one a line: the form in which scripts,
// pages and later reports get it. docs/quarvel.schema.json describes them; fields are only ever added.
#ifndef QUARVEL_DESK_EVENTS_H
#define QUARVEL_DESK_EVENTS_H

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "desk/Json.h"
#include "desk/RunObserver.h"

Json ToJson(const PackageRow& row);
Json ToJson(const PenLeft& left);
// What a program says that ends before or beside any run: a "result" without pen and code.
Json FailureEvent(ExitStatus status, std::string_view sentence);

// Turns what runs report into events and hands each to the sinks. Any thread may call.
class EventLog : public RunObserver {
 public:
  // Takes one whole line; called by one thread at a time.
  using Sink = std::function<void(std::string_view line)>;

  // `log` is the library's log, which the events name.
  explicit EventLog(std::string log) : m_log(std::move(log)) {}
  // To be called before the first event.
  void AddSink(Sink sink) { m_sinks.push_back(std::move(sink)); }

  // Adds "schema" and "event" in front of the fields and hands the line on.
  void Write(std::string_view event, const Json& fields);
  // The event that begins a run; without a pen for a command that works on none.
  void WriteRun(const Json& pen, const Json& handle, const Job& job);
  void WriteResult(const Json& pen, const RunEnd& end);
  // A command ended before the library was called, or for a reason that is none of its results.
  void WriteFailure(ExitStatus status, std::string_view sentence);

  void OnStarted(const PenRun& run) override;
  void OnProgress(const PenRun& run, const PackageProgress& progress) override;
  void OnDecided(const PenRun& run, const PackageRow& row, bool skip) override;
  void OnWait(const PenRun& run, const Wait& wait, bool begins) override;
  void OnEnded(const PenRun& run, const RunEnd& end) override;

 private:
  void Hand(const Json& whole);

  std::string m_log;
  std::mutex m_lock;  // held while the sinks are called
  std::vector<Sink> m_sinks;
};

#endif
