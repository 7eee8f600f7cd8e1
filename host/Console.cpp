#include "host/Console.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace {

bool HasText(const char* variable) {
  const char* value = getenv(variable);
  return value && *value;
}

bool IsCapableTerminal(FILE* stream) {
  const char* kind = getenv("TERM");
  return isatty(fileno(stream)) && !(kind && std::string_view(kind) == "dumb");
}

size_t ColumnsOf(FILE* stream) {
  winsize size{};
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

// Nothing may be thrown at a run for a line that cannot be shown.
void WriteLine(FILE* stream, std::string_view whole) {
  std::string text = IsCapableTerminal(stream) ? Wrapped(whole, ColumnsOf(stream)) : std::string(whole);
  fwrite(text.data(), 1, text.size(), stream);
  fputc('\n', stream);
}

// Of a character in UTF-8 the first byte does.
bool BeginsColumn(char byte) {
  return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
}

// The end of the colour that begins at `at`.
size_t PastColour(std::string_view line, size_t at) {
  size_t end = line.find('m', at);
  return end == std::string_view::npos ? line.size() : end + 1;
}

size_t VisibleColumns(std::string_view text) {
  size_t columns = 0;
  for (size_t i = 0; i < text.size();) {
    if (text[i] == '\x1b') {
      i = PastColour(text, i);
      continue;
    }
    columns += BeginsColumn(text[i++]) ? 1 : 0;
  }
  return columns;
}

// Where the line is parted: behind the last word that fits; the line's size when it fits or has no such word.
size_t PartingOf(std::string_view line, size_t columns) {
  size_t column = 0;
  size_t parting = line.size();
  bool word = false;
  for (size_t i = 0; i < line.size();) {
    if (line[i] == '\x1b') {
      i = PastColour(line, i);
      continue;
    }
    bool space = line[i] == ' ';
    if (space && word && line[i - 1] != ' ') parting = i;
    word = word || !space;
    column += BeginsColumn(line[i]) ? 1 : 0;
    if (column > columns) return parting;
    ++i;
  }
  return line.size();
}

void AppendWrapped(std::string& text, std::string line, size_t columns) {
  size_t indent = std::min(line.find_first_not_of(' '), line.size());
  std::string next(std::min(indent + 2, columns / 2), ' ');
  for (size_t parting = 0; (parting = PartingOf(line, columns)) < line.size();) {
    size_t rest = line.find_first_not_of(' ', parting);
    if (rest == std::string::npos) {
      line.resize(parting);
      break;
    }
    std::string_view word = std::string_view(line).substr(rest, line.find(' ', rest) - rest);
    if (next.size() + VisibleColumns(word) > columns) break;  // a long path would have to be cut all the same
    text += line.substr(0, parting) + '\n';
    line = next + line.substr(rest);
  }
  text += line + '\n';
}

}  // namespace

std::string Wrapped(std::string_view text, size_t columns) {
  std::string wrapped;
  for (size_t from = 0; from <= text.size();) {
    size_t end = std::min(text.find('\n', from), text.size());
    AppendWrapped(wrapped, std::string(text.substr(from, end - from)), columns);
    from = end + 1;
  }
  wrapped.pop_back();
  return wrapped;
}

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
  return ColumnsOf(m_out);
}

size_t Console::Rows() const {
  winsize size{};
  if (ioctl(fileno(m_out), TIOCGWINSZ, &size) == 0 && size.ws_row > 0) return size.ws_row;
  return 24;
}
