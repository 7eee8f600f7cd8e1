#include "host/Arguments.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "desk/Events.h"
#include "desk/Failure.h"
#include "desk/Text.h"
#include "desk/Version.h"
#include "host/Commands.h"
#include "host/Console.h"

namespace {

using Command = ExitStatus (*)(const Options&);

// What the options write into as text, before it is understood.
struct Parsed {
  Options options;
  std::vector<std::string> pens;
  std::string onError = "stop";
  Command command = nullptr;
};

CLI::App* AddCommand(CLI::App& app, Parsed& parsed, const std::string& name, const std::string& words, Command command,
                     const std::string& example) {
  CLI::App* sub = app.add_subcommand(name, words);
  sub->footer(fmt::format("\nExample: quarvel {} {}\n`quarvel --help` lists the exit statuses.", name, example));
  sub->final_callback([&parsed, command] { parsed.command = command; });
  return sub;
}

std::string CheckPenId(const std::string& text) {
  if (ParsePenId(text)) return "";
  return fmt::format("\"{}\" is no pen id; give 0x and hexadecimal digits, or a decimal number, as `quarvel pens` does",
                     text);
}

CLI::Option* AddPen(CLI::App* sub, Parsed& parsed, const std::string& words) {
  return sub->add_option("--pen", parsed.pens, words)
      ->type_name("ID")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CheckPenId);
}

void AddPens(CLI::App* sub, Parsed& parsed) {
  CLI::Option* pen = AddPen(sub, parsed, "A pen to work on; again for several at once");
  sub->add_flag("--all", parsed.options.all, "Work on every connected pen at once")->excludes(pen);
}

CLI::Option* AddCertificates(CLI::App* sub, Parsed& parsed) {
  return sub
      ->add_option("--cert", parsed.options.choice.certificates,
                   "File of a trusted certificate (PEM); again for several")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("FILE");
}

void AddBundle(CLI::App* sub, Parsed& parsed) {
  sub->add_option("BUNDLE", parsed.options.bundle, "The bundle's file")->required()->type_name("");
  AddCertificates(sub, parsed)->required();
  sub->add_flag("--fresh", parsed.options.fresh,
                "Unpack the bundle anew, whatever was unpacked from one of its size and date before");
}

void AddOutput(CLI::App* sub, Parsed& parsed) {
  Options& options = parsed.options;
  sub->add_option("--log", options.log, "Write the library's log to this file (else it is kept for `quarvel report`)")
      ->type_name("FILE");
  sub->add_option("--trace", options.trace,
                  "Record the calls of the pen library in this file (else they are kept for `quarvel report`)")
      ->type_name("FILE");
  sub->add_flag("--json", options.json, "Events as JSON Lines on standard output; text for people on standard error");
  sub->add_flag("-q,--quiet", options.quiet, "Tell failures only");
}

void AddInstall(CLI::App& app, Parsed& parsed) {
  Options& options = parsed.options;
  CLI::App* sub = AddCommand(app, parsed, "install", "Install a bundle on one or more pens", InstallCommand,
                             "tools.bundle --cert maker.pem --all");
  AddBundle(sub, parsed);
  AddPens(sub, parsed);
  sub->add_option("--group", options.choice.group, "Take only this group of the bundle")->type_name("NAME");
  sub->add_flag("--firmware", options.choice.firmware, "Take firmware (with neither this nor --apps: both)");
  sub->add_flag("--apps", options.choice.apps, "Take applications and paper products");
  sub->add_flag("--force", options.choice.force, "Install without comparing with what the pen holds");
  sub->add_option("--on-error", parsed.onError,
                  "For a failing package: stop (the default), skip or ask. A package whose signature check fails "
                  "always stops the run")
      ->check(CLI::IsMember({"stop", "skip", "ask"}).description(""))
      ->type_name("stop|skip|ask");
  sub->add_flag("--plan", options.plan, "Tell what would be done to each pen and why, and touch nothing");
  sub->add_flag("-y,--yes", options.yes, "Replace firmware without asking");
  sub->add_flag("--fail-if-current", options.failIfCurrent,
                "End with status 10 when every pen already held everything");
  AddOutput(sub, parsed);
}

CLI::Option* AddRun(CLI::App* sub, Parsed& parsed, const std::string& name, const std::string& words) {
  return sub->add_option(name, parsed.options.run, words)->check([](const std::string& text) {
    bool number = !text.empty() && text.size() < 18 && text.find_first_not_of("0123456789") == std::string::npos;
    return number || text == "last"
               ? std::string()
               : fmt::format("\"{}\" is no run; give a number as `quarvel history` does, or last", text);
  });
}

void AddHistory(CLI::App& app, Parsed& parsed) {
  Options& options = parsed.options;
  CLI::App* history = AddCommand(app, parsed, "history", "List the runs that this machine has seen", HistoryCommand,
                                 "--failed --since 7d");
  AddPen(history, parsed, "Runs of this pen only; again for several");
  history->add_flag("--failed", options.failed, "Runs that failed or ended without a result only");
  history->add_option("--since", options.since, "Runs since then: 7d, 12h, 30m, or a date as 2026-11-21")
      ->type_name("TIME");
  history->add_option("--limit", options.limit, "As many at most (20); 0 for all")->type_name("N");
  history->add_flag("--all", options.all, "Also runs that only looked: verify, and plans");
  history->add_flag("--json", options.json, "One JSON document on standard output");
  CLI::App* show = history->add_subcommand("show", "Tell all about one run");
  show->footer("\nExample: quarvel history show last --lines");
  show->fallthrough();
  show->final_callback([&options] { options.show = true; });
  AddRun(show, parsed, "RUN", "The run's number, or last")->required()->type_name("");
  show->add_flag("--lines", options.lines, "With its lines of the library's log");
}

void AddReport(CLI::App& app, Parsed& parsed) {
  Options& options = parsed.options;
  CLI::App* report = AddCommand(app, parsed, "report", "Gather versions, pens and a run's traces for support",
                                ReportCommand, "-o support.zip");
  report->add_option("-o,--output", options.output, "The zip file to write")->required()->type_name("FILE");
  CLI::Option* run =
      AddRun(report, parsed, "--run", "Of this run, as `quarvel history` numbers it; else of the last one");
  run->type_name("N");
  report->add_flag("--failed", options.failed, "Of the last run that failed or ended without a result")->excludes(run);
  report->add_flag("--full", options.full, "Leave pen ids, pen names and paths as they are; else they are masked");
  report->add_flag("--force", options.replace, "Replace the file when it is there");
}

void AddCommands(CLI::App& app, Parsed& parsed) {
  Options& options = parsed.options;
  CLI::App* pens =
      AddCommand(app, parsed, "pens", "List the connected pens and what they hold", PensCommand, "--json > pens.json");
  AddPen(pens, parsed, "Show this pen only; again for several");
  pens->add_flag("--json", options.json, "One JSON document on standard output");
  pens->add_flag("--ids", options.idsOnly, "Only the ids, one a line")->excludes("--json");

  CLI::App* verify = AddCommand(app, parsed, "verify", "Check a bundle's signatures, and that pens are ready for it",
                                VerifyCommand, "tools.bundle --cert maker.pem --all");
  AddBundle(verify, parsed);
  AddPens(verify, parsed);
  AddOutput(verify, parsed);

  AddInstall(app, parsed);

  CLI::App* recover = AddCommand(app, parsed, "recover", "Get pens that an install left half-way back on their feet",
                                 RecoverCommand, "--pen 0x00000a1b2c3d4e5f");
  recover->add_option("BUNDLE", options.bundle, "What the pen is to get, where no run that is kept here tells it")
      ->type_name("");
  AddCertificates(recover, parsed);
  AddPen(recover, parsed, "Recover this pen only; again for several");
  recover->add_option("--wait", options.wait, "Seconds to wait for a pen to be connected again (300)")
      ->type_name("SECONDS");
  AddOutput(recover, parsed);

  CLI::App* remove = AddCommand(app, parsed, "remove", "Remove a group of applications from pens", RemoveCommand,
                                "Notes --pen 0x00000a1b2c3d4e5f");
  remove->add_option("GROUP", options.choice.group, "The group's name; letter case counts")->required()->type_name("");
  AddPens(remove, parsed);
  AddOutput(remove, parsed);

  AddHistory(app, parsed);
  AddReport(app, parsed);

  CLI::App* version = AddCommand(app, parsed, "version", "Tell the version of the library", VersionCommand, "--json");
  version->add_flag("--json", options.json, "One JSON document on standard output");
}

// One sentence, and where to read more.
std::string UsageSentence(const CLI::App& app, const CLI::Error& error) {
  const CLI::App* sub = app.get_subcommands().empty() ? &app : app.get_subcommands().front();
  std::string name = sub == &app ? "quarvel" : "quarvel " + sub->get_name();
  std::vector<std::string> unknown = app.remaining();
  if (sub == &app && !unknown.empty()) {
    return fmt::format("there is no command \"{}\". See `quarvel --help`.", unknown.front());
  }
  return fmt::format("{}. See `{} --help`.", error.what(), name);
}

void Understand(Parsed& parsed, const CLI::App& app) {
  parsed.options.onError = parsed.onError == "ask"    ? OnError::kAsk
                           : parsed.onError == "skip" ? OnError::kSkip
                                                      : OnError::kStop;
  for (const std::string& pen : parsed.pens) parsed.options.pens.push_back(*ParsePenId(pen));
  bool needsPen = parsed.command == InstallCommand || parsed.command == RemoveCommand;
  if (!needsPen || !parsed.pens.empty() || parsed.options.all) return;
  throw Failure(ExitStatus::kUsage,
                fmt::format("Name the pens to {} with --pen ID (`quarvel pens` lists them) or take --all.",
                            app.got_subcommand("install") ? "install on" : "remove from"));
}

// A command whose output was lost is not done.
ExitStatus Run(const Parsed& parsed) {
  ExitStatus status = parsed.command(parsed.options);
  if (status != ExitStatus::kDone || !IsOutputLost()) return status;
  throw Failure(ExitStatus::kUsage, "Standard output cannot be written; write it elsewhere.");
}

int End(ExitStatus status, const std::string& sentence, bool json) {
  if (json) {
    std::string line = ToLine(FailureEvent(status, sentence));
    fwrite(line.data(), 1, line.size(), stdout);
  }
  Complain(sentence);
  return static_cast<int>(status);
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  PrepareStreams();
  CLI::App app("Installs signed application bundles onto digital pens.", "quarvel");
  app.require_subcommand(1);
  app.set_version_flag("--version", LibraryVersion);
  app.get_formatter()->column_width(26);
  app.footer('\n' + ExitStatusHelp() + "With several pens the status is that of the first pen that failed.");
  Parsed parsed;
  AddCommands(app, parsed);
  // A command line that is not understood may still ask for JSON.
  bool json = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
  try {
    app.parse(argc, argv);
    Understand(parsed, app);
    return static_cast<int>(Run(parsed));
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return End(ExitStatus::kUsage, UsageSentence(app, error), json);
  } catch (const Failure& failure) {
    return End(failure.Status(), failure.what(), json);
  } catch (const std::exception& error) {
    return End(ExitStatus::kInternal, fmt::format("an internal error: {}", error.what()), json);
  }
}
