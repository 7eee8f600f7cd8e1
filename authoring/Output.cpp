#include "authoring/Output.h"

#include <CLI/Error.hpp>
#include <algorithm>

#include "authoring/Failure.h"

namespace authoring {

std::string Printable(std::string_view text) {
  std::string printable(text);
  auto steers = [](char c) { return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7f; };
  std::replace_if(printable.begin(), printable.end(), steers, '?');
  return printable;
}

void SayJson(const nlohmann::json& value) {
  fmt::print("{}\n", value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void EndWithFindings() {
  throw CLI::RuntimeError(static_cast<int>(ExitStatus::kFindings));
}

}  // namespace authoring
