#include "host/Console.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

bool HasText(const char* variable) {
  const char* value = getenv(variable);
  return value && *value;
}

bool IsCapableTerminal(FILE* stream) {
  const char* kind = getenv("TERM");
  return isatty(fileno(stream)) && !(kind && std::string_view(kind) == "dumb");
}

}  // namespace

Console::Console(bool json, bool quiet)
    : m_out(json ? stderr : stdout),
      m_quiet(quiet),
      m_terminal(!quiet && IsCapableTerminal(m_out)),
      m_color(m_terminal && !HasText("NO_COLOR")) {}

void Console::Line(std::string_view text) const {
  if (!m_quiet) fmt::print(m_out, "{}\n", text);
  fflush(m_out);
}

void Console::Problem(std::string_view text) const {
  fflush(m_out);
  fmt::print(stderr, "{}\n", text);
}

void Console::Raw(std::string_view text) const {
  fwrite(text.data(), 1, text.size(), m_out);
  fflush(m_out);
}

std::string Console::Painted(Paint paint, std::string_view text) const {
  if (!m_color || paint == Paint::kNone) return std::string(text);
  int code = paint == Paint::kGood ? 32 : paint == Paint::kWarning ? 33 : 31;
  return fmt::format("\x1b[{}m{}\x1b[0m", code, text);
}

bool Console::CanAsk() const {
  return m_terminal && isatty(STDIN_FILENO);
}

size_t Console::Columns() const {
  winsize size{};
  if (ioctl(fileno(m_out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}
