// tessvik-sim: the simulated pens of a folder from the command line.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

#include "simulator/tool/Commands.h"

namespace {

using namespace simtool;

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& words, std::function<int()> run) {
  CLI::App* sub = app.add_subcommand(name, words);
  sub->callback([run = std::move(run)] { throw CLI::RuntimeError(run()); });
  return sub;
}

void AddPenCommands(CLI::App& app, Arguments& a) {
  CLI::App* add = AddCommand(app, "add", "Make a pen and plug it in", [&a] { return AddPen(a); });
  add->add_option("--id", a.id, "Its id (default: the next that is free)")->type_name("ID");
  add->add_option("--type", a.type, "Its type (default 1)")->type_name("N");
  add->add_option("--name", a.name, "Its name")->type_name("TEXT");
  add->add_option("--firmware", a.firmware, "Its firmware version, as \"8.9.15.b2\"")->type_name("VERSION");
  add->add_option("--penlet", a.penlets,
                  "An application on it: guid=,version=,build=,group=,group-version=,name=,kind=app|paper; again for "
                  "more")
      ->type_name("KEY=VALUE,...")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  add->add_option("--set", a.settings, "A setting of its behaviour, as `tessvik-sim set` takes it; again for more")
      ->type_name("NAME=VALUE");
  add->add_flag("--json", a.json, "Print the new pen's file");

  CLI::App* list = AddCommand(app, "list", "List the pens", [&a] { return ListPens(a); });
  list->add_flag("--json", a.json, "The pens' files as one JSON array");
  CLI::App* show = AddCommand(app, "show", "Show one pen", [&a] { return ShowPen(a); });
  show->add_option("ID", a.id, "The pen")->required()->type_name("");
  show->add_flag("--json", a.json, "The pen's file");
  const auto onPen = [&](const char* name, const char* words, int (*run)(const Arguments&)) {
    AddCommand(app, name, words, [&a, run] { return run(a); })
        ->add_option("ID", a.id, "The pen")
        ->required()
        ->type_name("");
  };
  onPen("remove", "Throw a pen away", RemovePen);
  onPen("plug", "Put a pen on the bus", PlugPen);
  onPen("unplug", "Take a pen off the bus", UnplugPen);
}

void AddBehaviour(CLI::App& app, Arguments& a) {
  CLI::App* set = AddCommand(app, "set", "Change how a pen behaves", [&a] { return SetPen(a); });
  set->add_option("ID", a.id, "The pen")->required()->type_name("");
  set->add_option("SETTING", a.settings, "NAME=VALUE, or name=, type=, firmware= or mode= for the pen itself")
      ->required()
      ->type_name("");
  set->footer(SettingsHelp());
  CLI::App* fault = AddCommand(app, "fault", "Let a pen function fail", [&a] { return SetFault(a); });
  fault->add_option("FUNCTION", a.function, "The pen function, as pcStartObex; without one the faults are listed")
      ->type_name("");
  fault->add_option("--call", a.call, "Fail this call, counted from 1 in each process (default: every call)")
      ->type_name("N");
  fault->add_option("--error", a.error, "The number to fail with (default 115)")->type_name("N");
  fault->add_option("--pen", a.faultPen, "Only calls for this pen, counted apart and kept in its file")
      ->type_name("ID");
  fault->add_flag("--clear", a.clear, "Forget all faults, of the folder or of the pen");
  fault->add_flag("--json", a.json, "List the faults as JSON");
  CLI::App* trace = AddCommand(app, "trace", "Write every call of every process to a file, one JSON line each",
                               [&a] { return SetTrace(a); });
  trace->add_option("FILE", a.file, "The trace; lines are added to it")->type_name("");
  trace->add_flag("--stop", a.clear, "Stop writing");
  CLI::App* replay = AddCommand(app, "replay", "Build the pens of a trace, make its calls again and tell what differs",
                                [&a] { return Replay(a); });
  replay->add_option("FILE", a.file, "A report with a trace in it, or a trace")->required()->type_name("");
  replay->add_option("--fault", a.fault, "Fail a call this time: FUNCTION:CALL:ERROR")->type_name("F:N:E");
  replay->add_flag("--strict", a.strict, "Give the pens no failures: each that was recorded has to come by itself");
  replay->add_flag("--json", a.json, "One JSON line for each call");
}

// A stream that is closed must not lend its number to a file that is opened later.
void PrepareStreams() {
  for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) _exit(1);
  }
}

int Fail(int status, const std::string& sentence) {
  Complain(status, sentence);
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  PrepareStreams();
  WantJson(std::find(argv, argv + argc, std::string_view("--json")) != argv + argc);
  CLI::App app("Simulated digital pens, kept as files and shared by all processes that use the folder.", "tessvik-sim");
  app.require_subcommand(1);
  app.set_version_flag("--version", QUARVEL_VERSION);
  app.footer(
      "The pens are in $TESSVIK_SIM_DIR, else in $XDG_STATE_HOME/tessvik-sim/pens.\n"
      "Exit status: 0 done, 1 the pens refused it (or a replay went otherwise), 2 usage.");
  Arguments arguments;
  AddPenCommands(app, arguments);
  AddBehaviour(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& done) {
    return done.get_exit_code();
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return Fail(2, fmt::format("{}; run with --help for more information.", error.what()));
  } catch (const std::exception& error) {
    return Fail(2, error.what());
  }
  return 0;
}
