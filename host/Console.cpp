#include "host/Console.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
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

// Nothing may be thrown at a run for a line that cannot be shown.
void WriteLine(FILE* stream, std::string_view text) {
  fwrite(text.data(), 1, text.size(), stream);
  fputc('\n', stream);
}

}  // namespace

void PrepareStreams() {
  signal(SIGPIPE, SIG_IGN);
  for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is given, which is this one.
    if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) _exit(1);
  }
}

bool IsOutputLost() {
  bool lost = fflush(stdout) != 0 || ferror(stdout) != 0;
  pollfd output{STDOUT_FILENO, 0, 0};
  bool unread = poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
  return lost && !unread;
}

void Complain(std::string_view sentence) {
  fflush(stdout);
  WriteLine(stderr, fmt::format("quarvel: {}", sentence));
}

Console::Console(bool json, bool quiet)
    : m_out(json ? stderr : stdout),
      m_quiet(quiet),
      m_terminal(!quiet && IsCapableTerminal(m_out)),
      m_color(m_terminal && !HasText("NO_COLOR")) {}

void Console::Line(std::string_view text) const {
  if (!m_quiet) WriteLine(m_out, text);
  fflush(m_out);
}

void Console::Problem(std::string_view text) const {
  fflush(m_out);
  WriteLine(stderr, text);
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

size_t Console::Rows() const {
  winsize size{};
  if (ioctl(fileno(m_out), TIOCGWINSZ, &size) == 0 && size.ws_row > 0) return size.ws_row;
  return 24;
}
