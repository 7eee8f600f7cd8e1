#include "trace/Line.h"

#include <string.h>

namespace trace {

void Line::Clear() {
  m_size = 0;
  m_depth = 0;
  m_dropped = 0;
  m_isCut = false;
  Put('{');
}

void Line::Puts(const char* text) {
  while (*text) Put(*text++);
}

void Line::Digits(uint64_t value, unsigned base) {
  char digits[20];
  size_t count = 0;
  do {
    digits[count++] = "0123456789abcdef"[value % base];
    value /= base;
  } while (value != 0);
  while (count > 0) Put(digits[--count]);
}

// False when there is no room for the member, or it belongs to something that found none.
bool Line::Name(const char* name) {
  const size_t needed = (name ? strlen(name) : 0) + kLongest;
  if (m_dropped > 0 || m_size + needed + kReserve > kSize) {
    m_isCut = true;
    return false;
  }
  const char last = m_buffer[m_size - 1];
  if (last != '{' && last != '[') Put(',');
  if (!name) return true;
  Put('"');
  Puts(name);
  Puts("\":");
  return true;
}

Line& Line::Number(const char* name, int64_t value) {
  if (!Name(name)) return *this;
  if (value < 0) Put('-');
  Digits(value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value), 10);
  return *this;
}

Line& Line::Unsigned(const char* name, uint64_t value) {
  if (Name(name)) Digits(value, 10);
  return *this;
}

Line& Line::Flag(const char* name, bool value) {
  if (Name(name)) Puts(value ? "true" : "false");
  return *this;
}

Line& Line::Id(const char* name, uint64_t id) {
  if (!Name(name)) return *this;
  Puts("\"0x");
  Digits(id, 16);
  Put('"');
  return *this;
}

Line& Line::Null(const char* name) {
  if (Name(name)) Puts("null");
  return *this;
}

void Line::Escaped(unsigned char c) {
  if (c == '"' || c == '\\') {
    Put('\\');
    Put(static_cast<char>(c));
  } else if (c >= 0x20 && c < 0x7f) {
    Put(static_cast<char>(c));
  } else {
    Puts("\\u00");
    Put("0123456789abcdef"[c >> 4]);
    Put("0123456789abcdef"[c & 15]);
  }
}

Line& Line::Text(const char* name, const char* text, size_t longest) {
  if (!text) return Null(name);
  if (!Name(name)) return *this;
  constexpr size_t longestEscape = 6;
  Put('"');
  for (size_t i = 0; i < longest && text[i] != '\0'; ++i) {
    if (m_size + longestEscape + kReserve > kSize) {
      m_isCut = true;
      break;
    }
    Escaped(static_cast<unsigned char>(text[i]));
  }
  Put('"');
  return *this;
}

Line& Line::Open(const char* name, char opening, char closing) {
  if (m_depth == kDepth || !Name(name)) {
    m_isCut = true;
    ++m_dropped;
    return *this;
  }
  Put(opening);
  m_closers[m_depth++] = closing;
  return *this;
}

Line& Line::Close() {
  if (m_dropped > 0) {
    --m_dropped;
  } else if (m_depth > 0) {
    Put(m_closers[--m_depth]);
  }
  return *this;
}

void Line::Finish() {
  m_dropped = 0;
  while (m_depth > 0) Close();
  if (m_isCut) Puts(m_buffer[m_size - 1] == '{' ? "\"cut\":true" : ",\"cut\":true");
  Puts("}\n");
}

}  // namespace trace
