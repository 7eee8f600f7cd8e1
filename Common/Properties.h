// A table of "key=value" lines held in memory. The first line with a key wins; ";", "#" and "[" begin a line that is no
// entry. The object owns its table; one thread uses one object.
#ifndef QUARVEL_COMMON_PROPERTIES_H
#define QUARVEL_COMMON_PROPERTIES_H

#include <map>
#include <string>
#include <string_view>

class CProperties {
 public:
  CProperties() = default;
  // Reads the text; whether it could be read whole is not told.
  explicit CProperties(std::string text);

  // Replaces the table by the text's entries. False when a line begins with a character that is not printable: reading
  // stops there, and the entries before it stay.
  bool Read(const std::string& text);

  // The value of a key, empty when there is none.
  std::string GetValue(std::string key) const;

 private:
  void AddLine(std::string_view line);

  std::map<std::string, std::string> m_values;
};

#endif
