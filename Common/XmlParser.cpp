#include "Common/XmlParser.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <utility>

namespace {

constexpr size_t kNone = std::string_view::npos;
constexpr std::string_view kCData = "<![CDATA[";
constexpr std::string_view kCDataEnd = "]]>";

// The position of the ">" that ends the tag at the text's start, kNone without one.
size_t TagEnd(std::string_view text) {
  if (!text.starts_with(kCData)) return text.find('>');
  const size_t end = text.find(kCDataEnd);
  return end == kNone ? kNone : end + kCDataEnd.size() - 1;
}

bool IsComment(std::string_view tag) {
  return tag.starts_with("<!--") || tag.starts_with("<?");
}

// One step of the search for a closing tag: the position after the tag at the text's start, and whether a "/" ended it.
size_t ScanTag(std::string_view text, bool* empty) {
  *empty = false;
  bool quoted = false;
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '>') return i + 1;
    if (text[i] == '"') quoted = !quoted;
    if (text[i] == '/' && !quoted) {
      *empty = true;
      return i + 1;
    }
  }
  return kNone;
}

}  // namespace

// An element whose inside is being read: the text from `cursor` to `end`.
struct XmlParser::Level {
  XMLElement* parent;
  size_t cursor;
  size_t end;
  XMLElement* recorded = nullptr;
  bool seen = false;
};

XMLElement* XmlParser::Parse(std::string_view text) {
  m_text = text;
  std::vector<Level> levels{{nullptr, 0, text.size()}};
  XMLElement* root = nullptr;
  while (!levels.empty()) {
    Level& level = levels.back();
    root = level.recorded;
    const std::string_view rest = m_text.substr(0, level.end);
    const size_t start = rest.find('<', level.cursor);
    AddBlankVariable(level.parent, rest.substr(level.cursor, start == kNone ? kNone : start - level.cursor));
    if (start == kNone || !ReadTag(levels, start)) {
      if (m_document.m_status == 2) return levels.front().recorded;
      levels.pop_back();
    }
  }
  return root;
}

// Reads one tag of the innermost level; false when the level ends there.
bool XmlParser::ReadTag(std::vector<Level>& levels, size_t start) {
  Level& level = levels.back();
  const std::string_view rest = m_text.substr(start, level.end - start);
  const size_t end = TagEnd(rest);
  if (end == kNone) return false;
  const std::string_view tag = rest.substr(0, end + 1);
  level.cursor = start + tag.size();
  if (IsComment(tag)) {
    ReadComment(level, tag);
  } else if (tag.starts_with(kCData)) {
    const std::string_view inside = tag.substr(kCData.size(), tag.size() - kCData.size() - kCDataEnd.size());
    if (level.parent) level.parent->m_cdatas.push_back({level.parent->GetChildrenNum(), inside});
  } else if (tag.starts_with("</")) {
    if (level.recorded && level.parent) {
      const auto& children = level.parent->m_children;
      if (children.empty() || children.back() != level.recorded) level.parent->m_children.push_back(level.recorded);
    }
  } else {
    return ReadElement(levels, start, start + tag.size());
  }
  return true;
}

void XmlParser::ReadComment(const Level& level, std::string_view tag) {
  const std::string_view text = tag.size() > 7 ? tag.substr(4, tag.size() - 7) : std::string_view();
  if (level.parent) {
    level.parent->m_comments.push_back({level.parent->GetChildrenNum(), text});
  } else {
    m_document.m_headerComments.push_back({level.seen ? 1U : 0U, text});
  }
}

bool XmlParser::ReadElement(std::vector<Level>& levels, size_t start, size_t end) {
  Level& level = levels.back();
  const std::string_view tag = m_text.substr(start + 1, end - start - 2);
  if (tag.ends_with('/')) {
    XMLElement* element = m_document.NewElement(level.parent, tag);
    if (level.parent) level.parent->m_children.push_back(element);
    if (!level.recorded) level.recorded = element;
    level.seen = true;
    return true;
  }
  const size_t close = FindXMLClose(m_text.substr(start, level.end - start));
  if (close == kNone) {
    m_document.m_status = 2;
    return false;
  }
  const size_t closing = m_text.rfind('<', start + close - 1);
  level.recorded = m_document.NewElement(level.parent, tag);
  level.seen = true;
  level.cursor = closing;
  levels.push_back({level.recorded, end, std::max(closing, end)});
  return true;
}

size_t XmlParser::FindXMLClose(std::string_view text) {
  int depth = 0;
  size_t at = text.find('<');
  while (at != kNone) {
    const std::string_view rest = text.substr(at);
    size_t size = 0;
    if (rest.starts_with("</")) {
      size = rest.find('>');
      if (size == kNone) return kNone;
      ++size;
      if (depth == 1) return at + size;
      --depth;
    } else if (rest.starts_with(kCData) || IsComment(rest)) {
      size = TagEnd(rest);
      if (size == kNone) return kNone;
      ++size;
    } else {
      bool empty = false;
      size = ScanTag(rest, &empty);
      if (size == kNone) return kNone;
      if (!empty) ++depth;
    }
    at = text.find('<', at + size);
  }
  return kNone;
}

void XmlParser::AddBlankVariable(XMLElement* element, std::string_view run) {
  constexpr const char* kBlank = " \t\n\r";
  const size_t begin = run.find_first_not_of(kBlank);
  if (!element || begin == kNone) return;
  const std::string_view text = run.substr(begin, run.find_last_not_of(kBlank) - begin + 1);
  element->m_contents.push_back({element->GetChildrenNum(), text});
}

std::string XML::Encode(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    switch (text[i]) {
      case '&':
        out += text.substr(i + 1, 1) == "#" ? "&" : "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += text[i];
    }
  }
  return out;
}

namespace {

// The character of a code in the locale's encoding, nothing when it has none.
void AppendCharacter(unsigned long code, std::string& out) {
  if (code == 0) return;
  char bytes[MB_LEN_MAX];
  std::mbstate_t state{};
  const size_t size = std::wcrtomb(bytes, static_cast<wchar_t>(code), &state);
  if (size != static_cast<size_t>(-1)) out.append(bytes, size);
}

// Decodes the reference at the text's start into `out`; returns its length, 0 for a bare "&".
size_t DecodeReference(std::string_view text, std::string& out) {
  constexpr std::pair<std::string_view, char> kNamed[] = {
      {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&lt;", '<'}, {"&gt;", '>'}};
  for (const auto& [name, character] : kNamed) {
    if (!text.starts_with(name)) continue;
    out += character;
    return name.size();
  }
  if (!text.starts_with("&#")) return 0;
  const bool hex = text.size() > 2 && (text[2] == 'x' || text[2] == 'X');
  const size_t digits = hex ? 3 : 2;
  const size_t end =
      std::min(text.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789", digits), text.size());
  if (end == digits) return 0;
  AppendCharacter(
      std::strtoul(std::string(text.substr(digits, std::min<size_t>(end - digits, 8))).c_str(), nullptr, hex ? 16 : 10),
      out);
  return std::min(end + 1, text.size());
}

}  // namespace

std::string XML::Decode(std::string_view text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t reference = std::min(text.find('&', at), text.size());
    out.append(text, at, reference - at);
    if (reference == text.size()) break;
    const size_t size = DecodeReference(text.substr(reference), out);
    if (size == 0) out += '&';
    at = reference + std::max<size_t>(size, 1);
  }
  return out;
}
