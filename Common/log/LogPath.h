// Where a log file is. No state; any thread may ask.
#ifndef QUARVEL_COMMON_LOG_LOGPATH_H
#define QUARVEL_COMMON_LOG_LOGPATH_H

#include <string>

// The path that CLogger::Init makes of its flags and texts (either may be null): at most 259 bytes. User folders are
// created if they are missing.
std::string ResolveLogPath(int flags, const char* fileName, const char* folder);

// The user's documents folder as the XDG user directories name it, "Documents" in the home folder where they do not.
// Empty when there is no such folder and none can be made.
std::string DocumentsFolder();

// "Applications" in the home folder; empty as above.
std::string ApplicationsFolder();

// The host's working folder and "/"; empty when it is gone.
std::string WorkingFolder();

#endif
