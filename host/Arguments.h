// The command line of quarvel: its commands, options, help texts and exit statuses.
#ifndef QUARVEL_HOST_ARGUMENTS_H
#define QUARVEL_HOST_ARGUMENTS_H

// Parses, runs the chosen command and returns the process's exit status. Everything that a person did wrong ends in
// one sentence on standard error.
int RunCommandLine(int argc, char** argv);

#endif
