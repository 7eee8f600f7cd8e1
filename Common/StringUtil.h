// Byte strings in the C locale. No state: every operation may be called from any thread.
#ifndef QUARVEL_COMMON_STRINGUTIL_H
#define QUARVEL_COMMON_STRINGUTIL_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class CStringUtil {
 public:
  // Compares two version texts by up to five numbers between "." and "_": 1, 0 or -1 as `a` is newer, equal or older.
  static int CompareVersion(const char* a, const char* b);
  static int CompareVersion(const std::string& a, const std::string& b) { return CompareVersion(a.c_str(), b.c_str()); }

  // The leading decimal integer of a text, 0 without one; numbers beyond 32 bits become the nearest end of the range.
  static int32_t ToInt(const char* text);

  // Append one entry per non-empty token; every character of `delims` parts tokens.
  static void SplitToInts(const std::string& text, std::string delims, std::vector<int32_t>& out);
  static void Split(const std::string& text, std::string delims, std::vector<std::string>& out);

  // A copy of `text` with every occurrence replaced; inserted text is searched again from its second character on.
  static std::string ReplaceAll(const std::string& text, const std::string& from, const std::string& to);

  static void ToLower(std::string& text);
  static void ToUpper(std::string& text);
  static void ToLower(char* text);
  static void ToUpper(char* text);
};

#endif
