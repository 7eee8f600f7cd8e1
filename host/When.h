// Points in time as people read and write them: in this machine's own time zone.
#ifndef QUARVEL_HOST_WHEN_H
#define QUARVEL_HOST_WHEN_H

#include <time.h>

#include <optional>
#include <string>

// "2026-11-21 08:30" of a time as TimeText, or "11-21 08:30"; the text itself when it is none.
std::string WhenText(const std::string& time, bool year);
// The point in time, as TimeText, of "7d", "12h", "30m" before now, or of a date "2026-11-21", which begins at midnight
// here, or of a text as TimeText. Nothing for any other text.
std::optional<std::string> ParseSince(const std::string& text, time_t now);
// The seconds from one time, as TimeText, to another; 0 where one of them is none.
uint64_t SecondsBetween(const std::string& from, const std::string& to);

#endif
