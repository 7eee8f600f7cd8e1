#include "Common/xml/XmlParser.h"

#include <algorithm>

#include "Common/xml/XmlCloseTable.h"
#include "Common/xml/XmlTags.h"
#include "Common/xml/XmlTreeBuilder.h"

namespace {

std::string_view Between(const char* begin, const char* end) {
  return begin < end ? std::string_view(begin, static_cast<size_t>(end - begin)) : std::string_view();
}

// Adds the comment or character data from `tag` to its last character at `close`; false for any other tag.
bool AddIfText(XmlTreeBuilder& builder, const char* tag, const char* close) {
  if (tag[1] != '!' && tag[1] != '?') return false;
  if (xmltags::IsComment(tag, close)) {
    builder.AddComment(Between(tag + 4, close - 2));
    return true;
  }
  if (!xmltags::StartsWith(tag, close, xmltags::kCData)) return false;
  builder.AddCData(Between(tag + xmltags::kCData.size(), close + 1 - xmltags::kCDataEnd.size()));
  return true;
}

// Reads documents whose tags are the same by both rules: a closing tag closes the innermost open element.
class OnePassParser {
 public:
  OnePassParser(XmlTreeBuilder& builder, const char* end) : m_builder(builder), m_end(end) {}

  // False for a document that it cannot read. `*stopped` is where reading ended: in front of an element or tag without
  // an end if there is one.
  bool Parse(const char* at, const char** stopped) {
    while (true) {
      at = xmltags::SkipBlanks(at);
      const char* tag = *at == '<' ? at : xmltags::Find(at, m_end, '<');
      if (!tag) break;
      if (tag != at) m_builder.AddRun(at, tag);
      const char* close = ReadBareTag(tag);
      if (!close) {
        close = xmltags::FindEnd(tag, m_end);
        if (!close) {
          m_stopped = tag;
          break;
        }
        if (!ReadTag(tag, close)) return false;
      }
      at = close + 1;
    }
    *stopped = m_builder.IsOpen() ? m_top : m_stopped ? m_stopped : m_end;
    return true;
  }

 private:
  // Reads a start or closing tag that is a name and nothing else, as most are; returns its ">", null for any other tag.
  const char* ReadBareTag(const char* tag) {
    const bool closes = tag[1] == '/';
    const char* name = tag + (closes ? 2 : 1);
    const char* close = xmltags::SkipPlainName(name);
    if (*close != '>' || *name == '!' || *name == '?') return nullptr;
    if (closes) {
      CloseElement();
    } else {
      if (!m_builder.IsOpen()) m_top = tag;
      m_builder.OpenBare(Between(name, close));
    }
    return close;
  }

  void CloseElement() {
    if (m_builder.IsOpen()) m_builder.Close();
  }

  bool ReadTag(const char* tag, const char* close) {
    if (tag[1] == '/') {
      CloseElement();
      return true;
    }
    if (AddIfText(m_builder, tag, close)) return true;
    if (!xmltags::IsPlainTag(tag, close)) return false;
    if (close[-1] == '/') {
      m_builder.AddEmpty(Between(tag + 1, close));
      return true;
    }
    if (!m_builder.IsOpen()) m_top = tag;
    m_builder.Open(Between(tag + 1, close));
    return true;
  }

  XmlTreeBuilder& m_builder;
  const char* m_end;
  const char* m_top = nullptr;  // the latest element outside all others
  const char* m_stopped = nullptr;
};

// Reads any document: every element's closing tag is looked up before its inside is read.
class DepthParser {
 public:
  DepthParser(XmlTreeBuilder& builder, const char* begin, const char* end)
      : m_builder(builder), m_closes(begin, end), m_levels{{end, end}} {}

  // Returns where reading ended.
  const char* Parse(const char* at) {
    while (true) {
      const char* const end = m_levels.back().end;
      const char* tag = xmltags::Find(at, end, '<');
      if (!tag) m_builder.AddRun(at, std::max(at, end));
      const char* next = tag ? ReadTag(at, tag, end) : nullptr;
      if (next) {
        at = next;
        continue;
      }
      // The level ends here; what is left of it is dropped.
      const char* behind = m_levels.back().behind;
      m_levels.pop_back();
      if (m_levels.empty()) return tag ? tag : end;
      m_builder.Close();
      at = behind;
    }
  }
  bool unclosed() const { return m_unclosed; }

 private:
  // An element whose inside is being read: where that ends, and behind its closing tag.
  struct Level {
    const char* end;
    const char* behind;
  };

  const char* ReadTag(const char* at, const char* tag, const char* end) {
    m_builder.AddRun(at, tag);
    const char* close = xmltags::FindEnd(tag, end);
    if (!close) return nullptr;
    // A closing tag without an element to close says nothing.
    if (tag[1] == '/' || AddIfText(m_builder, tag, close)) return close + 1;
    if (close[-1] == '/') {
      m_builder.AddEmpty(Between(tag + 1, close));
      return close + 1;
    }
    const char* closing = m_closes.Find(tag, end);
    if (!closing) {
      m_unclosed = true;
      return nullptr;
    }
    m_builder.Open(Between(tag + 1, close));
    m_levels.push_back({std::max(closing, close + 1), xmltags::Find(closing, end, '>') + 1});
    return close + 1;
  }

  XmlTreeBuilder& m_builder;
  XmlCloseTable m_closes;
  std::vector<Level> m_levels;
  bool m_unclosed = false;
};

}  // namespace

XmlParsed ParseXml(const std::shared_ptr<XmlArena>& arena, const char* begin, const char* end) {
  XmlParsed parsed;
  const char* stopped = nullptr;
  XmlTreeBuilder builder(*arena);
  if (OnePassParser(builder, end).Parse(begin, &stopped)) {
    parsed.unclosed = builder.IsOpen();
  } else {
    builder.Restart();
    DepthParser parser(builder, begin, end);
    stopped = parser.Parse(begin);
    parsed.unclosed = parser.unclosed();
  }
  parsed.root = XmlTreeBuilder::MakeTop(builder.recorded(), arena);
  parsed.comments = builder.OuterComments();
  parsed.stopped = static_cast<size_t>(stopped - arena->text());
  return parsed;
}

XMLElement* XMLHelper::ParseElementTree(XMLHeader* header, XMLElement* parent, std::string_view text, bool* unclosed) {
  Z<char> copy(text.size() + XML::kSlack);
  std::copy(text.begin(), text.end(), static_cast<char*>(copy));
  const auto arena = std::make_shared<XmlArena>(std::move(copy));
  const char* const begin = arena->text();
  XmlTreeBuilder builder(*arena);
  if (parent) builder.OpenFrame();
  DepthParser parser(builder, begin, begin + text.size());
  parser.Parse(begin);
  if (unclosed) *unclosed = parser.unclosed();
  XMLElement* const recorded = builder.recorded();
  if (!parent) {
    for (const XMLComment* comment : builder.OuterComments()) {
      if (header) header->AddComment(comment->Duplicate());
    }
    return XmlTreeBuilder::MakeTop(recorded, arena);
  }
  builder.CloseFrame(*parent, arena);
  return recorded;
}

size_t XMLHelper::FindXMLClose(std::string_view text) {
  const char* const end = text.data() + text.size();
  int depth = 0;
  for (const char* tag = xmltags::Find(text.data(), end, '<'); tag; tag = xmltags::Find(tag, end, '<')) {
    const xmltags::Step step = xmltags::Scan(tag, end);
    if (!step.next) break;
    if (step.depth < 0 && depth == 1) return static_cast<size_t>(step.next - text.data());
    depth += step.depth;
    tag = step.next;
  }
  return std::string_view::npos;
}

void XMLHelper::AddBlankVariable(XMLElement* element, std::string_view text, unsigned position) {
  constexpr const char* kBlank = " \t\n\r";
  const size_t begin = text.find_first_not_of(kBlank);
  if (!element || begin == std::string_view::npos) return;
  element->AddContent(text.substr(begin, text.find_last_not_of(kBlank) - begin + 1), position, true);
}
