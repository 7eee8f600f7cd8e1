// What a line of the log looks like.
#include <pthread.h>

#include <cstring>

#include "Common/Logger_mac.h"

namespace {

// "[date] [thread] [tag] ": 17, 8 and 20 characters.
constexpr size_t kHeadLength = 54;
constexpr size_t kTagLength = 20;
constexpr int kThreadDigits = 8;

char* PutDigits(char* out, unsigned value, int width) {
  for (int i = width - 1; i >= 0; --i, value /= 10) out[i] = static_cast<char>('0' + value % 10);
  return out + width;
}

// Eight hexadecimal digits on every machine: the low 32 bits of what the system calls the thread.
char* PutThread(char* out) {
  auto thread = static_cast<uint32_t>(pthread_self());
  for (int i = kThreadDigits - 1; i >= 0; --i, thread >>= 4) out[i] = "0123456789abcdef"[thread & 15];
  return out + kThreadDigits;
}

char* PutText(char* out, const char* text, size_t length) {
  memcpy(out, text, length);
  return out + length;
}

}  // namespace

void CLogger::GenStringDate(uint16_t year, uint16_t month, uint16_t day, uint16_t hour, uint16_t minute,
                            uint16_t second, char* out) {
  out = PutDigits(out, year, 4);
  out = PutDigits(out, month, 2);
  out = PutDigits(out, day, 2);
  *out++ = '|';
  out = PutDigits(out, hour, 2);
  *out++ = ':';
  out = PutDigits(out, minute, 2);
  *out++ = ':';
  out = PutDigits(out, second, 2);
  *out = '\0';
}

void CLogger::RTrim(char* text) {
  char* end = text + strlen(text);
  while (end > text && end[-1] == ' ') --end;
  *end = '\0';
}

void CLogger::ReplaceChar(char* text, char from, char to) {
  for (; *text; ++text)
    if (*text == from) *text = to;
}

// The date is made once a second; the year is the count since 1900.
void CLogger::AppendHead(const char* tag) {
  const time_t now = time(nullptr);
  if (now != m_dateSecond) {
    tm local = {};
    localtime_r(&now, &local);
    const auto field = [](int value) { return static_cast<uint16_t>(value); };
    GenStringDate(field(local.tm_year), field(local.tm_mon + 1), field(local.tm_mday), field(local.tm_hour),
                  field(local.tm_min), field(local.tm_sec), m_date);
    m_dateSecond = now;
  }
  char head[kHeadLength];
  memset(head, ' ', sizeof head);
  char* out = head;
  *out++ = '[';
  out = PutText(out, m_date, kDateSize - 1);
  out = PutText(out, "] [", 3);
  out = PutThread(out);
  out = PutText(out, "] [", 3);
  if (tag) PutText(out, tag, strnlen(tag, kTagLength));
  PutText(out + kTagLength, "] ", 2);
  m_pending.append(head, sizeof head);
}
