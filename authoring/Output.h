// What quarvel-bundle says on its streams. Names in a bundle are its author's: nothing in them may steer the terminal.
#ifndef QUARVEL_AUTHORING_OUTPUT_H
#define QUARVEL_AUTHORING_OUTPUT_H

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

namespace authoring {

// The text with every control character but the line feed replaced.
std::string Printable(std::string_view text);

// Writes to standard output.
template <typename... Values>
void Say(fmt::format_string<Values...> format, Values&&... values) {
  fmt::print("{}", Printable(fmt::format(format, std::forward<Values>(values)...)));
}

// To be called before anything is opened: a stream that is closed must not lend its number to a file that is opened
// later.
void PrepareStreams();

// Writes one line to standard error.
void Warn(const std::string& line);

// Writes one sentence to standard error, behind the program's name and, when `json`, an object about it to standard
// output. What cannot be written is left unsaid.
void Complain(int status, const std::string& sentence, bool json);

// Writes a document and a line feed to standard output; bytes that are not UTF-8 are replaced.
void SayJson(const nlohmann::json& value);

// Ends the command when a check ran and did not pass, once everything is said.
[[noreturn]] void EndWithFindings();

}  // namespace authoring

#endif
