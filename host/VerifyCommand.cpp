#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <vector>

#include "desk/FreshCopy.h"
#include "desk/LoadedBundle.h"
#include "desk/PenList.h"
#include "desk/Text.h"
#include "host/Commands.h"
#include "host/Loading.h"
#include "host/RunSummary.h"
#include "host/Session.h"
#include "platform/Tessvik.h"

namespace {

// Whether an install could begin on the pen now.
InsResCode Readiness(Pen& pen) {
  if (pen.state == pcPenStateFirmwareDownload) return insSuccess;
  ReadContents(pen);
  return pen.contents && !pen.contents->firmware.empty() ? insSuccess : insPenFailure;
}

std::string ReadyText(const Pen& pen) {
  std::string id = IdText(pen);
  if (pen.state == pcPenStateFirmwareDownload) return fmt::format("Pen {} is ready; it is in download mode.", id);
  return fmt::format("Pen {} is ready; it has firmware {} and {} applications.", id, Printable(pen.contents->firmware),
                     pen.contents->penlets.size());
}

// Reads all pens at once, each on a thread of its own.
std::vector<InsResCode> ReadinessOf(std::vector<Pen>& pens) {
  std::vector<InsResCode> codes(pens.size(), insPenFailure);
  std::vector<std::jthread> threads;
  for (size_t i = 0; i < pens.size(); ++i) threads.emplace_back([&codes, &pens, i] { codes[i] = Readiness(pens[i]); });
  threads.clear();
  return codes;
}

ExitStatus TellReadiness(Session& session, const Pen& pen, InsResCode code) {
  if (code == insSuccess) {
    session.console().Line(ReadyText(pen));
  } else {
    session.console().Problem(fmt::format("Pen {} cannot be read.", IdText(pen)));
    Explain(session.console(), code, "", TextOf(code).remedy, session.log().File());
  }
  RunEnd end;
  end.code = code;
  end.status = StatusOf(code);
  session.events().WriteResult(IdText(pen), end);
  return StatusOf(code);
}

}  // namespace

ExitStatus VerifyCommand(const Options& options) {
  return Session::Serve(options, "verify", [&](Session& session) {
    Configuration configuration(options.choice);
    bool withPens = options.all || !options.pens.empty();
    std::vector<Pen> pens = withPens ? SelectPens(options.pens, options.all) : std::vector<Pen>();
    Job job;
    job.command = "verify";
    job.bundle = options.bundle;
    session.events().WriteRun(nullptr, nullptr, job);
    std::optional<FreshCopy> copy;
    if (options.fresh) copy.emplace(options.bundle);
    auto bundle = LoadTelling(session, copy ? copy->File() : options.bundle, configuration);
    session.console().Line(fmt::format("{} is valid: every file is signed by the owner of a given certificate.",
                                       Printable(options.bundle)));
    session.events().WriteResult(nullptr, {});
    ExitStatus status = ExitStatus::kDone;
    std::vector<InsResCode> codes = ReadinessOf(pens);
    for (size_t i = 0; i < pens.size(); ++i) {
      ExitStatus of = TellReadiness(session, pens[i], codes[i]);
      if (status == ExitStatus::kDone) status = of;
    }
    return status;
  });
}
