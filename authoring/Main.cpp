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

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Makes, signs, inspects and checks bundles for digital pens.", "quarvel-bundle");
  app.require_subcommand(1);
  app.set_version_flag("--version", QUARVEL_VERSION);
  app.failure_message(UsageMessage);
  app.footer(
      "Exit status: 0 done, 1 a check found something, 2 wrong usage, 3 a file cannot be read or written, 4 a key or "
      "certificate cannot be used.");
  authoring::AddMakingCommands(app);
  authoring::AddInspectingCommands(app);
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
