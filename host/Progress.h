// The part of the screen that moves: one line for each pen that is at work, redrawn in place on a terminal, with
// lasting lines above it. Where the window has too few rows, those pens that fit are shown and the others counted.
// Elsewhere only the lasting lines are printed. Any thread may call.
#ifndef QUARVEL_HOST_PROGRESS_H
#define QUARVEL_HOST_PROGRESS_H

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/Console.h"

class Progress {
 public:
  // `pens` is how many are to be served in all.
  Progress(const Console& console, size_t pens) : m_console(console), m_pens(pens) {}
  ~Progress() { Finish(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Changes a pen's line, given in forms from the longest to the shortest, of which the first that fits the window is
  // drawn: at most ten times a second, unless `now`.
  void Show(size_t line, std::vector<std::string> forms, bool now = false);
  // The pen is done.
  void Remove(size_t line);
  // A lasting line.
  void Say(std::string_view text);
  // Lasting lines, which `tell` writes to the console.
  void Tell(const std::function<void()>& tell);
  // A lasting line where no line moves.
  void SayIfStill(std::string_view text);
  // A lasting line to standard error, also when quiet.
  void Problem(std::string_view text);
  // Asks a person, one question at a time, and returns the first letter of the answer; 0 when `cancelled` became true
  // or the input ended. What is told meanwhile stands above the question.
  char Ask(std::string_view question, const std::function<bool()>& cancelled);
  // Takes the lines away; nothing moves any more.
  void Finish();

 private:
  void Draw();
  void Erase();
  std::vector<std::string> Frame() const;
  static char ReadAnswer(const std::function<bool()>& cancelled);

  const Console& m_console;
  size_t m_pens;
  std::mutex m_asking;  // held while a question is open; taken before m_lock
  std::mutex m_lock;    // guards what follows
  std::map<size_t, std::vector<std::string>> m_lines;
  size_t m_done = 0;
  size_t m_drawn = 0;      // lines on the screen, above the cursor
  std::string m_question;  // the one that is open
  bool m_finished = false;
  std::chrono::steady_clock::time_point m_lastDraw{};
};

// "[######>        ]", `width` characters between the brackets.
std::string BarText(uint64_t done, uint64_t total, size_t width);
// " 45%"
std::string PercentText(uint64_t done, uint64_t total);
// How many columns a UTF-8 text takes, and at most `columns` of it.
size_t ColumnsOf(std::string_view text);
std::string_view CutToColumns(std::string_view text, size_t columns);

#endif
