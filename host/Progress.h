// The part of the screen that moves: one line per pen, redrawn in place on a terminal, with lasting lines above it.
// Elsewhere only the lasting lines are printed. Any thread may call.
#ifndef QUARVEL_HOST_PROGRESS_H
#define QUARVEL_HOST_PROGRESS_H

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/Console.h"

class Progress {
 public:
  Progress(const Console& console, size_t lines) : m_console(console), m_lines(lines) {}
  ~Progress() { Finish(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Changes a pen's line; on a terminal it is drawn at most ten times a second, unless `now`.
  void Show(size_t line, std::string text, bool now = false);
  // A lasting line.
  void Say(std::string_view text);
  // Lasting lines, which `tell` writes to the console.
  void Tell(const std::function<void()>& tell);
  // A lasting line where no line moves.
  void SayIfStill(std::string_view text);
  // A lasting line to standard error, also when quiet.
  void Problem(std::string_view text);
  // Asks a person, one question at a time, and returns the first letter of the answer; 0 when `cancelled` became true
  // or the input ended.
  char Ask(std::string_view question, const std::function<bool()>& cancelled);
  // Leaves the lines as they stand; nothing moves any more.
  void Finish();

 private:
  void Draw();
  void Erase();
  static char ReadAnswer(const std::function<bool()>& cancelled);

  const Console& m_console;
  std::mutex m_asking;  // held while a question is open; taken before m_lock
  std::mutex m_lock;    // guards what follows
  std::vector<std::string> m_lines;
  size_t m_drawn = 0;  // lines on the screen, above the cursor
  bool m_paused = false;
  bool m_finished = false;
  std::chrono::steady_clock::time_point m_lastDraw{};
};

// "[######>        ]"
std::string BarText(uint64_t done, uint64_t total);
// At most `columns` characters of a UTF-8 text.
std::string_view CutToColumns(std::string_view text, size_t columns);

#endif
