// A query over a tree: steps from an element downwards, parted by "/".
//
//   Group            children of that name
//   *                all children
//   **               the element itself and everything below it
//   Group[2]         of each parent's matches the third
//   Group[@id]       those that have the attribute
//   Group[@id=7]     those whose attribute has that value, decoded; it ends at the last "]"
//   .../@id          the attribute of what the steps before it match; only as the last step
//
// A step takes one condition. Matches come in document order, each once. An empty query matches the element itself; one
// that cannot be read matches nothing. An object holds the query alone and may be used by any number of threads.
#ifndef QUARVEL_COMMON_XML_XMLQUERY_H
#define QUARVEL_COMMON_XML_XMLQUERY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/xml/XmlElement.h"

class XMLQuery {
 public:
  explicit XMLQuery(std::string_view query);

  bool valid() const { return m_valid; }
  // The attribute that the query ends in, empty without one.
  const std::string& attribute() const { return m_attribute; }
  // The matching elements; with an attribute, those that have it.
  std::vector<XMLElement*> Run(XMLElement& top) const;
  // The first match's attribute, or else its first text; false when there is none.
  bool GetValue(XMLElement& top, std::string& out) const;
  // Sets that of the first match. Without a match, makes what is missing as long as all steps are plain names.
  bool SetValue(XMLElement& top, std::string_view value) const;

 private:
  struct Step {
    std::string name;
    std::optional<size_t> index;
    std::string variable;
    std::optional<std::string> value;

    bool IsPlain() const { return name != "*" && name != "**" && !index && variable.empty(); }
    bool Matches(const XMLElement& element) const;
    void Collect(XMLElement& parent, std::vector<XMLElement*>& out) const;
  };

  bool ReadStep(std::string_view text);
  static bool ReadCondition(std::string_view text, Step& step);

  std::vector<Step> m_steps;
  std::string m_attribute;
  bool m_valid = true;
};

#endif
