#include <fmt/format.h>

#include <array>

#include "host/Commands.h"
#include "host/Events.h"
#include "host/Versions.h"

std::string LibraryVersion() {
  std::array<char, 64> text{};
  insGetVersion(nullptr, text.data(), static_cast<int>(text.size() - 1));
  return text.data();
}

ExitStatus VersionCommand(const Options& options) {
  std::string line = options.json ? ToLine({{"schema", 1}, {"library", LibraryVersion()}})
                                  : fmt::format("quarvel, with libQuarvel {}\n", LibraryVersion());
  fmt::print("{}", line);
  return ExitStatus::kDone;
}
