#include "authoring/Output.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

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

void PrepareStreams() {
  for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is given, which is this one.
    if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) _exit(1);
  }
}

namespace {

const char* ClassOf(int status) {
  switch (static_cast<ExitStatus>(status)) {
    case ExitStatus::kFindings:
      return "findings";
    case ExitStatus::kUsage:
      return "usage";
    case ExitStatus::kKey:
      return "key";
    default:
      return "file";
  }
}

void WriteTo(FILE* stream, const std::string& text) {
  fwrite(text.data(), 1, text.size(), stream);
}

}  // namespace

void Warn(const std::string& line) {
  fflush(stdout);
  WriteTo(stderr, Printable(line) + '\n');
}

void Complain(int status, const std::string& sentence, bool json) {
  if (json) {
    nlohmann::ordered_json object{
        {"schema", 1}, {"event", "result"}, {"class", ClassOf(status)}, {"exit", status}, {"meaning", sentence}};
    WriteTo(stdout, object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n');
  }
  fflush(stdout);
  WriteTo(stderr, fmt::format("quarvel-bundle: {}\n", Printable(sentence)));
}

void SayJson(const nlohmann::json& value) {
  fmt::print("{}\n", value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

void EndWithFindings() {
  throw CLI::RuntimeError(static_cast<int>(ExitStatus::kFindings));
}

}  // namespace authoring
