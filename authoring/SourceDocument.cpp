#include "authoring/SourceDocument.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace authoring {

namespace {

using Kind = SourceToken::Kind;

constexpr std::string_view kBlank = " \t\n\r";
constexpr std::string_view kCharacterData = "<![CDATA[";

// The length of the tag that `text` begins with, 0 when it does not end.
size_t TagLength(std::string_view text) {
  std::string_view close = text.starts_with(kCharacterData) ? "]]>" : ">";
  size_t end = text.find(close);
  return end == std::string_view::npos ? 0 : end + close.size();
}

Kind KindOf(std::string_view tag) {
  if (tag.starts_with("<!--") || tag.starts_with("<?")) return Kind::kComment;
  if (tag.starts_with(kCharacterData)) return Kind::kCharacterData;
  if (tag.starts_with("</")) return Kind::kEnd;
  return tag.ends_with("/>") ? Kind::kEmpty : Kind::kStart;
}

std::string_view Trim(std::string_view text) {
  size_t first = text.find_first_not_of(kBlank);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// The reference that `text`, which begins with "&", starts with: its length (0 for a bare "&") and its character.
std::pair<size_t, char> ReadReference(std::string_view text) {
  static constexpr std::array<std::pair<std::string_view, char>, 5> kNamed{
      {{"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&lt;", '<'}, {"&gt;", '>'}}};
  for (auto [name, character] : kNamed) {
    if (text.starts_with(name)) return {name.size(), character};
  }
  if (!text.starts_with("&#")) return {0, '&'};
  bool hex = text.starts_with("&#x") || text.starts_with("&#X");
  const char* digits = text.data() + (hex ? 3 : 2);
  unsigned code = 0;
  auto [end, error] = std::from_chars(digits, text.data() + text.size(), code, hex ? 16 : 10);
  size_t length = std::min(static_cast<size_t>(end - text.data()) + 1, text.size());
  return {length, static_cast<char>(code)};
}

std::string Unescape(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  while (!text.empty()) {
    size_t run = std::min(text.find('&'), text.size());
    plain.append(text.substr(0, run));
    text.remove_prefix(run);
    if (text.empty()) break;
    auto [length, character] = ReadReference(text);
    plain += character;
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return plain;
}

void ReadAttributes(std::string_view text, std::vector<SourceAttribute>& attributes) {
  while (true) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    if (text.empty() || text[0] == '>' || text[0] == '/') return;
    size_t equals = text.find('=');
    if (equals == std::string_view::npos) return;
    std::string_view name = text.substr(0, equals);
    text.remove_prefix(equals + 1);
    if (text.starts_with('"')) text.remove_prefix(1);
    size_t quote = text.find('"');
    if (quote == std::string_view::npos) return;
    attributes.push_back({Unescape(name), Unescape(text.substr(0, quote))});
    text.remove_prefix(quote + 1);
  }
}

SourceElement ReadTag(const SourceToken& token) {
  SourceElement element;
  element.line = token.line;
  std::string_view tag = token.text.substr(1);
  size_t nameEnd = std::min(tag.find_first_of(" /\t>\""), tag.size());
  element.name = Unescape(tag.substr(0, nameEnd));
  ReadAttributes(tag.substr(nameEnd), element.attributes);
  return element;
}

// Deeper than any element of a manifest that is read; what lies deeper still is left out of the tree.
constexpr size_t kDeepest = 200;

// Elements that are open, innermost last. Closing tags close by depth, whatever name they carry.
class TreeBuilder {
 public:
  std::optional<SourceElement> Build(const std::vector<SourceToken>& tokens) {
    for (const SourceToken& token : tokens) {
      if (token.kind == Kind::kStart) Open(token);
      if (token.kind == Kind::kEnd) CloseInnermost();
      if (m_leftOut > 0) continue;
      if (token.kind == Kind::kEmpty) AddEmpty(ReadTag(token));
      if (token.kind == Kind::kText) AddText(token.text);
    }
    return std::move(m_root);
  }

 private:
  void AddText(std::string_view text) {
    if (!m_open.empty() && m_open.back().text.empty()) m_open.back().text = Unescape(Trim(text));
  }
  void Open(const SourceToken& token) {
    if (m_open.size() < kDeepest) {
      m_open.push_back(ReadTag(token));
    } else {
      ++m_leftOut;
    }
  }
  void CloseInnermost() {
    if (m_leftOut > 0) {
      --m_leftOut;
      return;
    }
    if (m_open.empty()) return;
    SourceElement element = std::move(m_open.back());
    m_open.pop_back();
    Finish(std::move(element));
  }
  // Of several elements at the top the last one that is not empty is the root.
  void Finish(SourceElement element) {
    if (m_open.empty()) {
      m_root = std::move(element);
    } else {
      m_open.back().children.push_back(std::move(element));
    }
  }
  void AddEmpty(SourceElement element) {
    if (!m_open.empty() || !m_root) Finish(std::move(element));
  }

  std::vector<SourceElement> m_open;
  size_t m_leftOut = 0;  // open elements below the deepest one kept
  std::optional<SourceElement> m_root;
};

}  // namespace

std::vector<SourceToken> CutTokens(std::string_view text) {
  std::vector<SourceToken> tokens;
  int line = 1;
  auto take = [&](Kind kind, size_t length) {
    std::string_view piece = text.substr(0, length);
    if (length > 0) tokens.push_back({kind, piece, line});
    line += static_cast<int>(std::count(piece.begin(), piece.end(), '\n'));
    text.remove_prefix(length);
  };
  while (!text.empty()) {
    take(Kind::kText, std::min(text.find('<'), text.size()));
    size_t length = text.empty() ? 0 : TagLength(text);
    if (length == 0) break;
    take(KindOf(text.substr(0, length)), length);
  }
  return tokens;
}

const SourceElement* SourceElement::Child(std::string_view childName) const {
  auto found = std::find_if(children.begin(), children.end(),
                            [childName](const SourceElement& child) { return child.name == childName; });
  return found == children.end() ? nullptr : &*found;
}

std::string SourceElement::ChildText(std::string_view childName) const {
  const SourceElement* child = Child(childName);
  return child ? child->text : std::string();
}

const std::string* SourceElement::Attribute(std::string_view attributeName) const {
  auto found = std::find_if(attributes.begin(), attributes.end(), [attributeName](const SourceAttribute& attribute) {
    return attribute.name == attributeName;
  });
  return found == attributes.end() ? nullptr : &found->value;
}

std::optional<SourceElement> ParseSource(std::string_view text) {
  return TreeBuilder().Build(CutTokens(text));
}

}  // namespace authoring
