// What a result code means to a person, and which exit status a script gets for it: one table each.
#ifndef QUARVEL_DESK_RESULTTEXTS_H
#define QUARVEL_DESK_RESULTTEXTS_H

#include <string>
#include <string_view>

#include "installer/QuarvelPublic.h"

// X(enumerator, value, name in JSON, words): every exit status, one line each. The help and the manual page list the
// same words.
#define QUARVEL_EXIT_STATUSES(X)                                                                     \
  X(kDone, 0, "done", "done, or nothing was to be done")                                             \
  X(kInternal, 1, "internal", "an internal error")                                                   \
  X(kUsage, 2, "usage", "wrong arguments, or a named file or folder that cannot be read or written") \
  X(kBundle, 3, "bundle", "the bundle is missing, damaged, or has nothing for the pen or the group") \
  X(kSignature, 4, "signature", "the bundle's signatures or the given certificates are not valid")   \
  X(kPen, 5, "pen", "the pen is not connected, or a transfer to it failed")                          \
  X(kAborted, 6, "aborted", "the run was aborted")                                                   \
  X(kVerification, 7, "verification", "after the install the pen does not hold what was expected")   \
  X(kCurrent, 10, "current", "with --fail-if-current: every pen already held everything")            \
  X(kKilled, 130, "killed", "stopped at once, by the third Ctrl-C")

#define QUARVEL_EXIT_ENUMERATOR(name, value, json, words) name = (value),
enum class ExitStatus : int { QUARVEL_EXIT_STATUSES(QUARVEL_EXIT_ENUMERATOR) };
#undef QUARVEL_EXIT_ENUMERATOR

struct ResultText {
  InsResCode code;
  std::string_view meaning;
  std::string_view remedy;  // empty for success
};

// The table's row; a code that the table lacks gets one that says so.
ResultText TextOf(InsResCode code);
ExitStatus StatusOf(InsResCode code);
std::string_view NameOf(ExitStatus status);
// All exit statuses, one a line, for the help.
std::string ExitStatusHelp();

#endif
