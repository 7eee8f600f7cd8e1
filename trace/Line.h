// One line of a trace in the making: a JSON object in a buffer of fixed size, made inside other people's processes and
// so without allocation, locale or exceptions. Values that do not fit are left out or cut off, and the line then says
// "cut". On the stack of one thread.
//
// Texts are bytes: those outside printable ASCII are written as \u0000 to \u00ff, whatever they mean to the host.
#ifndef QUARVEL_TRACE_LINE_H
#define QUARVEL_TRACE_LINE_H

#include <stddef.h>
#include <stdint.h>

namespace trace {

class Line {
 public:
  Line() { Clear(); }
  void Clear();

  // Members of the object that is open; without a name, elements of the array that is open.
  Line& Number(const char* name, int64_t value);
  Line& Unsigned(const char* name, uint64_t value);
  Line& Flag(const char* name, bool value);
  // A pen id, "0x2a".
  Line& Id(const char* name, uint64_t id);
  // At most `longest` bytes, up to the NUL; null for a null pointer.
  Line& Text(const char* name, const char* text, size_t longest);
  Line& Null(const char* name);
  Line& OpenObject(const char* name) { return Open(name, '{', '}'); }
  Line& OpenArray(const char* name) { return Open(name, '[', ']'); }
  Line& Close();

  // Closes whatever is open and ends the line.
  void Finish();
  const char* data() const { return m_buffer; }
  size_t size() const { return m_size; }

 private:
  static constexpr size_t kSize = 4096;
  static constexpr size_t kDepth = 4;     // of what is open
  static constexpr size_t kReserve = 32;  // for "cut", what closes and the end of the line
  static constexpr size_t kLongest = 40;  // of a member besides its texts

  Line& Open(const char* name, char opening, char closing);
  bool Name(const char* name);
  void Put(char c) { m_buffer[m_size++] = c; }
  void Puts(const char* text);
  void Digits(uint64_t value, unsigned base);
  void Escaped(unsigned char c);

  char m_buffer[kSize];
  size_t m_size;
  char m_closers[kDepth];
  size_t m_depth;
  size_t m_dropped;  // objects and arrays that did not fit and are not closed yet
  bool m_isCut;
};

}  // namespace trace

#endif
