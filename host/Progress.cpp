#include "host/Progress.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

void Progress::Show(size_t line, std::string text, bool now) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_lines[line] = std::move(text);
  auto time = std::chrono::steady_clock::now();
  if (!now && time - m_lastDraw < std::chrono::milliseconds(100)) return;
  m_lastDraw = time;
  Draw();
}

void Progress::Tell(const std::function<void()>& tell) {
  std::lock_guard<std::mutex> guard(m_lock);
  Erase();
  tell();
  Draw();
}

void Progress::Say(std::string_view text) {
  Tell([&] { m_console.Line(text); });
}

void Progress::SayIfStill(std::string_view text) {
  if (!m_console.IsTerminal()) Say(text);
}

void Progress::Problem(std::string_view text) {
  Tell([&] { m_console.Problem(text); });
}

char Progress::Ask(std::string_view question, const std::function<bool()>& cancelled) {
  std::lock_guard<std::mutex> one(m_asking);
  {
    std::lock_guard<std::mutex> guard(m_lock);
    Erase();
    m_console.Raw(question);
    m_paused = true;
  }
  char answer = ReadAnswer(cancelled);
  std::lock_guard<std::mutex> guard(m_lock);
  m_paused = false;
  Draw();
  return answer;
}

// Looks up every 200 ms, so that an interrupt ends the question.
char Progress::ReadAnswer(const std::function<bool()>& cancelled) {
  std::string answer;
  while (!cancelled()) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, 200) <= 0) continue;
    char next = 0;
    if (read(STDIN_FILENO, &next, 1) != 1) return 0;
    if (next == '\n') return answer.empty() ? ' ' : answer[0];
    answer += next;
  }
  return 0;
}

void Progress::Finish() {
  std::lock_guard<std::mutex> guard(m_lock);
  if (m_finished) return;
  Draw();
  m_finished = true;
}

void Progress::Draw() {
  if (!m_console.IsTerminal() || m_paused || m_finished) return;
  std::string frame = m_drawn > 0 ? fmt::format("\x1b[{}A", m_drawn) : "";
  size_t columns = m_console.Columns() - 1;  // a full line would wrap
  for (const std::string& line : m_lines) frame += fmt::format("\r{}\x1b[K\n", CutToColumns(line, columns));
  m_drawn = m_lines.size();
  m_console.Raw(frame);
}

void Progress::Erase() {
  if (m_drawn == 0 || m_finished) return;
  m_console.Raw(fmt::format("\x1b[{}A\r\x1b[J", m_drawn));
  m_drawn = 0;
}

std::string BarText(uint64_t done, uint64_t total) {
  constexpr size_t width = 20;
  double share = total > 0 ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total)) : 0;
  size_t full = static_cast<size_t>(share * width);
  std::string bar(full, '#');
  if (full < width) bar += '>';
  return fmt::format("[{:<{}}] {:>3}%", bar, width, static_cast<int>(share * 100));
}

std::string_view CutToColumns(std::string_view text, size_t columns) {
  size_t length = 0;
  for (size_t count = 0; length < text.size(); ++length) {
    bool continuation = (static_cast<unsigned char>(text[length]) & 0xc0) == 0x80;
    if (!continuation && count++ == columns) break;
  }
  return text.substr(0, length);
}
