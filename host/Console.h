// Where human text goes: standard output, or standard error when standard output carries JSON. Knows whether a person
// watches (a terminal), how wide the window is, and whether colours are wanted. Written to by one thread at a time;
// during a run the Progress object sees to that.
#ifndef QUARVEL_HOST_CONSOLE_H
#define QUARVEL_HOST_CONSOLE_H

#include <stdio.h>

#include <string>
#include <string_view>

// To be called before anything is opened or written: the reader of a stream that goes away must not end a run in the
// middle, and a stream that is closed must not lend its number to a file that is opened later.
void PrepareStreams();
// Whether some of what was written to standard output could not be kept; not, when its reader wants no more.
bool IsOutputLost();
// One sentence on standard error, behind the program's name. Standard error may be unwritable, which changes nothing.
void Complain(std::string_view sentence);

// The text with lines of at most so many columns, as far as they have spaces at which they can be parted; what is
// parted off is indented by two more. Colours take no columns.
std::string Wrapped(std::string_view text, size_t columns);

enum class Paint { kNone, kGood, kWarning, kBad };

class Console {
 public:
  Console(bool json, bool quiet);

  // One line of human text, or several; nothing when quiet. A terminal gets it in lines that fit.
  void Line(std::string_view text) const;
  // One line that a person must see, to standard error, also when quiet.
  void Problem(std::string_view text) const;
  // Text as it stands, without a line's end; for redrawing.
  void Raw(std::string_view text) const;
  std::string Painted(Paint paint, std::string_view text) const;

  // A terminal that can move its cursor shows the human text.
  bool IsTerminal() const { return m_terminal; }
  bool IsQuiet() const { return m_quiet; }
  // A person is there to answer a question.
  bool CanAsk() const;
  size_t Columns() const;
  size_t Rows() const;

 private:
  FILE* m_out;
  bool m_quiet;
  bool m_terminal;
  bool m_color;
};

#endif
