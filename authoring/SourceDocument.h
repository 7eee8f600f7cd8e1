// A manifest as its author sees it: the same tree that the library's forgiving parser makes of the text, with the line
// of every piece. The library keeps no lines and drops silently what it cannot use; here nothing is lost.
#ifndef QUARVEL_AUTHORING_SOURCEDOCUMENT_H
#define QUARVEL_AUTHORING_SOURCEDOCUMENT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace authoring {

// One tag or run of text, as the parser cuts the document. Views into the text.
struct SourceToken {
  enum class Kind { kText, kStart, kEmpty, kEnd, kComment, kCharacterData };
  Kind kind;
  std::string_view text;  // tags with their brackets
  int line;               // of its first character, from 1
};

// Cuts the whole text, the declaration included. A tag without its ">" ends the list.
std::vector<SourceToken> CutTokens(std::string_view text);

struct SourceAttribute {
  std::string name;
  std::string value;  // unescaped
};

struct SourceElement {
  std::string name;
  int line = 0;
  std::string text;  // the first run of text, trimmed and unescaped; empty when there is none
  std::vector<SourceAttribute> attributes;
  std::vector<SourceElement> children;

  const SourceElement* Child(std::string_view childName) const;
  // The text of a child; empty when it is missing.
  std::string ChildText(std::string_view childName) const;
  const std::string* Attribute(std::string_view attributeName) const;
};

// The root element; none when the text has no complete one.
std::optional<SourceElement> ParseSource(std::string_view text);

}  // namespace authoring

#endif
