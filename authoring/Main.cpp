// quarvel-bundle: makes, signs, inspects and checks bundles.
#include <cstdio>
#include <exception>

#include "authoring/Commands.h"
#include "authoring/Failure.h"
#include "authoring/Output.h"

namespace {

using authoring::ExitStatus;

int Fail(ExitStatus status, const char* sentence) {
  fmt::print(stderr, "quarvel-bundle: {}\n", authoring::Printable(sentence));
  return static_cast<int>(status);
}

// One sentence, and where to read more.
std::string UsageMessage(const CLI::App* app, const CLI::Error& error) {
  std::string command = "quarvel-bundle";
  for (const CLI::App* chosen : app->get_subcommands()) command += " " + chosen->get_name();
  return fmt::format("quarvel-bundle: {}. See \"{} --help\".\n", error.what(), command);
}

constexpr const char* kExitStatuses =
    "\nExit status:\n"
    "  0  done\n"
    "  1  a check ran and did not pass: findings, a failed verification, a difference\n"
    "  2  the command line is not understood\n"
    "  3  a file or folder cannot be read or written, or is not what the command needs\n"
    "  4  a key, certificate, passphrase or signature cannot be used";

int Run(int argc, char** argv) {
  CLI::App app("Makes, signs, inspects and checks bundles for digital pens.", "quarvel-bundle");
  app.require_subcommand(1);
  app.set_version_flag("--version", QUARVEL_VERSION);
  app.failure_message(UsageMessage);
  authoring::AddMakingCommands(app);
  authoring::AddInspectingCommands(app);
  app.footer(kExitStatuses);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& error) {
    return error.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? static_cast<int>(ExitStatus::kDone) : static_cast<int>(ExitStatus::kUsage);
  } catch (const authoring::Failure& failure) {
    return Fail(failure.status(), failure.what());
  } catch (const std::exception& unexpected) {
    return Fail(ExitStatus::kFile, unexpected.what());
  }
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

// What was said has not reached anybody before the stream is flushed.
int main(int argc, char** argv) {
  int status = Run(argc, argv);
  bool lost = fflush(stdout) != 0;
  return lost && status == 0 ? Fail(ExitStatus::kFile, "Standard output cannot be written; write it elsewhere.")
                             : status;
}
