#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "desk/Json.h"
#include "desk/Version.h"
#include "host/Commands.h"

ExitStatus VersionCommand(const Options& options) {
  std::string line = options.json ? ToLine({{"schema", 1}, {"library", LibraryVersion()}, {"inflate", QUARVEL_INFLATE}})
                                  : fmt::format("quarvel, with libQuarvel {}\n", LibraryVersion());
  fmt::print("{}", line);
  return ExitStatus::kDone;
}
