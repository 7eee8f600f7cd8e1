// The commands of quarvel, one function and one source file each. They run on the main thread and throw a Failure
// only before anything is begun; what the library says becomes output and exit status.
#ifndef QUARVEL_HOST_COMMANDS_H
#define QUARVEL_HOST_COMMANDS_H

#include "desk/ResultTexts.h"
#include "host/Options.h"

ExitStatus PensCommand(const Options& options);
ExitStatus VerifyCommand(const Options& options);
ExitStatus InstallCommand(const Options& options);
ExitStatus RecoverCommand(const Options& options);
ExitStatus RemoveCommand(const Options& options);
ExitStatus HistoryCommand(const Options& options);
ExitStatus ReportCommand(const Options& options);
ExitStatus VersionCommand(const Options& options);

#endif
