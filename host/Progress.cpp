#include "host/Progress.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

namespace {

bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

double Share(uint64_t done, uint64_t total) {
  return total > 0 ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total)) : 0;
}

std::string_view Fitting(const std::vector<std::string>& forms, size_t columns) {
  for (const std::string& form : forms) {
    if (ColumnsOf(form) <= columns) return form;
  }
  return forms.empty() ? std::string_view() : CutToColumns(forms.back(), columns);
}

}  // namespace

void Progress::Show(size_t line, std::vector<std::string> forms, bool now) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_lines[line] = std::move(forms);
  auto time = std::chrono::steady_clock::now();
  if (!now && time - m_lastDraw < std::chrono::milliseconds(100)) return;
  m_lastDraw = time;
  Draw();
}

void Progress::Remove(size_t line) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_lines.erase(line);
  ++m_done;
}

void Progress::Tell(const std::function<void()>& tell) {
  std::lock_guard<std::mutex> guard(m_lock);
  if (!m_question.empty()) m_console.Raw("\r\x1b[K");
  Erase();
  tell();
  if (!m_question.empty()) m_console.Raw(m_question);
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
    m_question = question;
    m_console.Raw(m_question);
  }
  char answer = ReadAnswer(cancelled);
  std::lock_guard<std::mutex> guard(m_lock);
  if (answer == 0) m_console.Raw("\n");
  m_question.clear();
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
  Erase();
  m_finished = true;
}

// One row is left for the cursor; a full line would wrap.
std::vector<std::string> Progress::Frame() const {
  size_t columns = std::max<size_t>(m_console.Columns(), 2) - 1;
  size_t rows = std::max<size_t>(m_console.Rows(), 3) - 1;
  size_t waiting = m_pens - std::min(m_pens, m_done + m_lines.size());
  bool counted = waiting > 0 || m_lines.size() > rows;
  size_t shown = std::min(m_lines.size(), counted ? rows - 1 : rows);
  std::vector<std::string> frame;
  for (auto line = m_lines.begin(); frame.size() < shown; ++line) frame.emplace_back(Fitting(line->second, columns));
  if (!counted) return frame;
  std::string others = fmt::format("{} of {} pens are done", m_done, m_pens);
  if (m_lines.size() > shown) others = fmt::format("{} more at work, ", m_lines.size() - shown) + others;
  if (waiting > 0) others += fmt::format(", {} wait for a place", waiting);
  frame.emplace_back(CutToColumns(others, columns));
  return frame;
}

void Progress::Draw() {
  if (!m_console.IsTerminal() || !m_question.empty() || m_finished) return;
  std::string text = m_drawn > 0 ? fmt::format("\x1b[{}A", m_drawn) : "";
  std::vector<std::string> frame = Frame();
  for (const std::string& line : frame) text += fmt::format("\r{}\x1b[K\n", line);
  if (frame.size() < m_drawn) text += "\r\x1b[J";
  m_drawn = frame.size();
  m_console.Raw(text);
}

void Progress::Erase() {
  if (m_drawn == 0 || m_finished) return;
  m_console.Raw(fmt::format("\x1b[{}A\r\x1b[J", m_drawn));
  m_drawn = 0;
}

std::string BarText(uint64_t done, uint64_t total, size_t width) {
  size_t full = static_cast<size_t>(Share(done, total) * static_cast<double>(width));
  std::string bar(full, '#');
  if (full < width) bar += '>';
  return fmt::format("[{:<{}}]", bar, width);
}

std::string PercentText(uint64_t done, uint64_t total) {
  return fmt::format("{:>3}%", static_cast<int>(Share(done, total) * 100));
}

size_t ColumnsOf(std::string_view text) {
  return text.size() - static_cast<size_t>(std::count_if(text.begin(), text.end(), IsContinuation));
}

std::string_view CutToColumns(std::string_view text, size_t columns) {
  size_t length = 0;
  for (size_t count = 0; length < text.size(); ++length) {
    if (!IsContinuation(text[length]) && count++ == columns) break;
  }
  return text.substr(0, length);
}
