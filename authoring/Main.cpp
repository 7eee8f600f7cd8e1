// quarvel-bundle: makes, signs, inspects and checks bundles.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string_view>

#include "authoring/Commands.h"
#include "authoring/Failure.h"
#include "authoring/Output.h"

namespace {

using authoring::ExitStatus;

// One sentence, and where to read more.
std::string UsageSentence(const CLI::App& app, const CLI::Error& error) {
  std::string command = "quarvel-bundle";
  for (const CLI::App* chosen : app.get_subcommands()) command += " " + chosen->get_name();
  return fmt::format("{}. See \"{} --help\".", error.what(), command);
}

constexpr const char* kExitStatuses =
    "\nExit status:\n"
    "  0  done\n"
    "  1  a check ran and did not pass: findings, a failed verification, a difference\n"
    "  2  the command line is not understood\n"
    "  3  a file or folder cannot be read or written, or is not what the command needs\n"
    "  4  a key, certificate, passphrase or signature cannot be used";

int Fail(ExitStatus status, const std::string& sentence, bool json) {
  authoring::Complain(static_cast<int>(status), sentence, json);
  return static_cast<int>(status);
}

int Run(int argc, char** argv, bool json) {
  CLI::App app("Makes, signs, inspects and checks bundles for digital pens.", "quarvel-bundle");
  app.require_subcommand(1);
  app.set_version_flag("--version", QUARVEL_VERSION);
  authoring::AddMakingCommands(app);
  authoring::AddInspectingCommands(app);
  app.footer(kExitStatuses);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& error) {
    return error.get_exit_code();
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return Fail(ExitStatus::kUsage, UsageSentence(app, error), json);
  } catch (const authoring::Failure& failure) {
    return Fail(failure.status(), failure.what(), json);
  } catch (const std::exception& unexpected) {
    return Fail(ExitStatus::kFile, unexpected.what(), json);
  }
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

// What was said has not reached anybody before the stream is flushed.
int main(int argc, char** argv) {
  authoring::PrepareStreams();
  bool json = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
  int status = Run(argc, argv, json);
  bool lost = fflush(stdout) != 0;
  return lost && status == 0 ? Fail(ExitStatus::kFile, "Standard output cannot be written; write it elsewhere.", false)
                             : status;
}
