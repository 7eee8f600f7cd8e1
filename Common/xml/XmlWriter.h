// Writes trees as text. Every line ends with a carriage return and a line feed. Used by one thread at a time.
//
// An element is indented once for every level, however deep it is, so the text of a chain of elements grows with the
// square of its length. What would be longer than a document can be is not begun: its size is counted beforehand.
#ifndef QUARVEL_COMMON_XML_XMLWRITER_H
#define QUARVEL_COMMON_XML_XMLWRITER_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

class XMLElement;
class XMLTextNode;

class XmlWriter {
 public:
  // Writes to the end of `out`, and on to the stream whenever much has gathered.
  explicit XmlWriter(std::string& out, FILE* stream = nullptr) : m_out(&out), m_stream(stream) {}
  // The bytes that an element takes, with all below it.
  static uint64_t SizeOf(const XMLElement& top, unsigned deep, bool formatting);

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

  XmlWriter() = default;  // only counts
  void Put(std::string_view text);
  void PutRepeated(char c, uint64_t times);
  void Count(uint64_t bytes);
  void FlushIfMuch();
  static std::vector<Text> TextsOf(const XMLElement& element);
  void Open(const XMLElement& element);
  void Step();
  void Indent(const XMLElement& element, uint64_t levels);

  std::string* m_out = nullptr;
  FILE* m_stream = nullptr;
  uint64_t m_size = 0;
  bool m_failed = false;
  std::vector<Level> m_levels;
  uint64_t m_deep = 0;
  bool m_formatting = true;
};

#endif
