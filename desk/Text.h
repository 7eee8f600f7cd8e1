// Small pieces of text for people: sizes, times, pen ids, and texts of foreign origin made safe to show.
#ifndef QUARVEL_DESK_TEXT_H
#define QUARVEL_DESK_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The text of a record's field, which may fill the field without a NUL.
std::string TextOfField(const char* field, size_t size);
template <size_t size>
std::string TextOfField(const char (&field)[size]) {
  return TextOfField(field, size);
}

// An optional text of a callback's record.
inline std::string TextOrEmpty(const char* text) {
  return text ? text : "";
}

// The text with every control character replaced, so that a pen's or a bundle's text cannot steer the terminal.
std::string Printable(std::string_view text);

std::string_view FileNameOf(std::string_view path);

// "0x" and 16 hexadecimal digits.
std::string PenIdText(uint64_t id);
// Takes a pen id as 0x and hexadecimal digits, or as a decimal number.
std::optional<uint64_t> ParsePenId(std::string_view text);

// "950 B", "1.2 kB", "3.4 MB".
std::string BytesText(uint64_t bytes);
// "0:07", "12:30", "1:02:03".
std::string DurationText(uint64_t seconds);

// The time in the form 2026-11-21T08:30:00Z.
std::string TimeText();

#endif
