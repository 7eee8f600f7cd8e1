// Writes trees as text. Every line ends with a carriage return and a line feed. Used by one thread at a time.
#ifndef QUARVEL_COMMON_XML_XMLWRITER_H
#define QUARVEL_COMMON_XML_XMLWRITER_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

class XMLElement;
class XMLTextNode;

class XmlWriter {
 public:
  // Writes to the end of `out`, and on to the stream whenever much has gathered.
  explicit XmlWriter(std::string& out, FILE* stream = nullptr) : m_out(out), m_stream(stream) {}

  // An element with all below it, `deep` levels in; without `formatting` nothing is indented.
  void Write(const XMLElement& top, unsigned deep, bool formatting);
  void Line(std::string_view before, std::string_view text, std::string_view after);
  // What has gathered goes to the stream; false when it did not take all of it, now or earlier.
  bool Flush();

 private:
  struct Text {
    const XMLTextNode* node;
    std::string_view before;
    std::string_view after;
  };
  // An element whose inside is being written.
  struct Level {
    const XMLElement* element;
    std::vector<Text> texts;
    size_t nextText = 0;
    unsigned nextChild = 0;
  };

  static std::vector<Text> TextsOf(const XMLElement& element);
  void Open(const XMLElement& element);
  void Step();
  void Indent(const XMLElement& element, size_t levels);

  std::string& m_out;
  FILE* m_stream;
  bool m_failed = false;
  std::vector<Level> m_levels;
  size_t m_deep = 0;
  bool m_formatting = true;
};

#endif
