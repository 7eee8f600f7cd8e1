// Traps of the manifests' text: what the library's forgiving parser reads otherwise than it looks.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "authoring/Lint.h"

namespace authoring {

namespace {

using Kind = SourceToken::Kind;

template <typename Visit>
void ForEachToken(const LintInput& input, Visit visit) {
  for (const ManifestSource* source : {&input.update, &input.bom}) {
    for (const SourceToken& token : source->tokens) visit(source->file, token);
  }
}

template <typename Visit>
void ForEachStartTag(const LintInput& input, Visit visit) {
  ForEachToken(input, [&](const std::string& file, const SourceToken& token) {
    if (token.kind == Kind::kStart || token.kind == Kind::kEmpty) visit(file, token);
  });
}

// The lines of ascending places in one token.
class Lines {
 public:
  explicit Lines(const SourceToken& token) : m_text(token.text), m_line(token.line) {}
  int At(size_t offset) {
    std::string_view passed = m_text.substr(m_offset, offset - m_offset);
    m_line += static_cast<int>(std::count(passed.begin(), passed.end(), '\n'));
    m_offset = offset;
    return m_line;
  }

 private:
  std::string_view m_text;
  int m_line;
  size_t m_offset = 0;
};

int LineAt(const SourceToken& token, size_t offset) {
  return Lines(token).At(offset);
}

// The element's name as its author meant it.
std::string_view NameOf(std::string_view tag) {
  std::string_view name = tag.substr(std::min<size_t>(tag.find_first_not_of("</"), tag.size()));
  return name.substr(0, name.find_first_of(" /\t>\"\r\n"));
}

// The tag with everything between double quotes blanked, so that offsets stay.
std::string OutsideQuotes(std::string_view tag) {
  std::string outside(tag);
  bool quoted = false;
  for (char& c : outside) {
    if (c == '"') {
      quoted = !quoted;
    } else if (quoted) {
      c = 'x';
    }
  }
  return outside;
}

void LineBreakAfterName(const LintInput& input, Findings& findings) {
  ForEachStartTag(input, [&](const std::string& file, const SourceToken& token) {
    std::string_view name = NameOf(token.text);
    size_t end = static_cast<size_t>(name.data() - token.text.data()) + name.size();
    char next = end < token.text.size() ? token.text[end] : '>';
    if (next != '\n' && next != '\r') return;
    findings.Add(file, token.line,
                 fmt::format("The line breaks right after \"{}\", so the break becomes part of the "
                             "element's name",
                             name));
  });
}

void LineBreakBetweenAttributes(const LintInput& input, Findings& findings) {
  ForEachStartTag(input, [&](const std::string& file, const SourceToken& token) {
    std::string outside = OutsideQuotes(token.text);
    size_t firstValue = outside.find('"');
    size_t lineBreak = outside.find_first_of("\r\n", firstValue);
    if (firstValue == std::string::npos || lineBreak == std::string::npos) return;
    if (outside.find('=', lineBreak) == std::string::npos) return;
    findings.Add(file, LineAt(token, lineBreak),
                 fmt::format("A line break between the attributes of \"{}\" becomes part of the next attribute's name",
                             NameOf(token.text)));
  });
}

void SingleQuotedAttribute(const LintInput& input, Findings& findings) {
  ForEachStartTag(input, [&](const std::string& file, const SourceToken& token) {
    size_t quote = OutsideQuotes(token.text).find("='");
    if (quote == std::string::npos) return;
    findings.Add(
        file, LineAt(token, quote),
        fmt::format("An attribute of \"{}\" is in single quotes, which do not delimit a value", NameOf(token.text)));
  });
}

void SpaceAroundEquals(const LintInput& input, Findings& findings) {
  ForEachStartTag(input, [&](const std::string& file, const SourceToken& token) {
    std::string outside = OutsideQuotes(token.text);
    Lines lines(token);
    for (size_t at = outside.find('='); at != std::string::npos; at = outside.find('=', at + 1)) {
      bool blankBefore = outside[at - 1] == ' ' || outside[at - 1] == '\t';
      bool blankAfter = at + 1 < outside.size() && (outside[at + 1] == ' ' || outside[at + 1] == '\t');
      if (!blankBefore && !blankAfter) continue;
      findings.Add(file, lines.At(at),
                   fmt::format("A blank beside \"=\" in \"{}\" becomes part of the "
                               "attribute's name or value",
                               NameOf(token.text)));
    }
  });
}

void OpenQuote(const LintInput& input, Findings& findings) {
  ForEachStartTag(input, [&](const std::string& file, const SourceToken& token) {
    if (std::count(token.text.begin(), token.text.end(), '"') % 2 == 0) return;
    findings.Add(file, token.line,
                 fmt::format("An attribute of \"{}\" holds \">\" or has no closing quote; the tag ends "
                             "there",
                             NameOf(token.text)));
  });
}

// Lengths of the references that end before their ";" are not told apart: the parser skips that character unread.
bool IsReference(std::string_view text) {
  for (std::string_view name : {"&amp;", "&quot;", "&apos;", "&lt;", "&gt;"}) {
    if (text.starts_with(name)) return true;
  }
  size_t digits = text.starts_with("&#x") || text.starts_with("&#X") ? 3 : 2;
  std::string_view allowed = digits == 3 ? "0123456789abcdefABCDEF" : "0123456789";
  return text.starts_with("&#") && text.size() > digits && allowed.find(text[digits]) != std::string_view::npos;
}

void BareAmpersand(const LintInput& input, Findings& findings) {
  ForEachToken(input, [&](const std::string& file, const SourceToken& token) {
    if (token.kind == Kind::kComment || token.kind == Kind::kCharacterData) return;
    Lines lines(token);
    for (size_t at = token.text.find('&'); at != std::string_view::npos; at = token.text.find('&', at + 1)) {
      if (IsReference(token.text.substr(at))) continue;
      findings.Add(file, lines.At(at), "A bare \"&\" starts no reference that is understood");
    }
  });
}

// A comment that the parser ends at a ">" before its "-->".
void CommentHoldsGreaterThan(const LintInput& input, Findings& findings) {
  ForEachToken(input, [&](const std::string& file, const SourceToken& token) {
    if (!token.text.starts_with("<!--") || (token.text.ends_with("-->") && token.text.size() > 6)) return;
    findings.Add(file, LineAt(token, token.text.size()),
                 "A comment holds \">\", which ends it; the rest of it is read as content");
  });
}

void CharacterDataSection(const LintInput& input, Findings& findings) {
  ForEachToken(input, [&](const std::string& file, const SourceToken& token) {
    if (token.kind != Kind::kCharacterData) return;
    findings.Add(file, token.line, "A character-data section is never read as an element's value");
  });
}

void DocumentType(const LintInput& input, Findings& findings) {
  ForEachStartTag(input, [&](const std::string& file, const SourceToken& token) {
    if (!token.text.starts_with("<!")) return;
    findings.Add(file, token.line, "A declaration that begins with \"<!\" is read as the start of an element");
  });
}

// Walks one document with the names of the open elements.
void CheckNesting(const ManifestSource& source, Findings& findings) {
  std::vector<const SourceToken*> open;
  for (const SourceToken& token : source.tokens) {
    if (token.kind == Kind::kStart) open.push_back(&token);
    if (token.kind != Kind::kEnd) continue;
    if (open.empty()) {
      findings.Add(source.file, token.line, fmt::format("\"{}\" closes nothing", token.text));
      continue;
    }
    if (NameOf(open.back()->text) != NameOf(token.text)) {
      findings.Add(source.file, token.line,
                   fmt::format("\"{}\" closes the element \"{}\" of line {}; only the depth counts", token.text,
                               NameOf(open.back()->text), open.back()->line));
    }
    open.pop_back();
  }
  for (const SourceToken* token : open) {
    findings.Add(source.file, token->line, fmt::format("\"{}\" is never closed", NameOf(token->text)));
  }
}

void TagsDoNotMatch(const LintInput& input, Findings& findings) {
  CheckNesting(input.update, findings);
  CheckNesting(input.bom, findings);
}

constexpr std::array kRules{
    LintRule{"line-break-after-name", Severity::kError, LineBreakAfterName,
             "Write the element's name and its first attribute on one line, with a space between them."},
    LintRule{"line-break-between-attributes", Severity::kError, LineBreakBetweenAttributes,
             "Write all attributes of an element on one line, with spaces between them."},
    LintRule{"single-quoted-attribute", Severity::kError, SingleQuotedAttribute, "Use double quotes."},
    LintRule{"space-around-equals", Severity::kError, SpaceAroundEquals, "Write name=\"value\" without blanks."},
    LintRule{"open-quote", Severity::kError, OpenQuote, "Close the quote, and write \">\" in a value as \"&gt;\"."},
    LintRule{"bare-ampersand", Severity::kError, BareAmpersand, "Write \"&amp;\"."},
    LintRule{"comment-holds-greater-than", Severity::kError, CommentHoldsGreaterThan,
             "Take the \">\" out of the comment."},
    LintRule{"character-data-section", Severity::kError, CharacterDataSection,
             "Write the text itself, with \"&amp;\", \"&lt;\" and \"&gt;\" where needed."},
    LintRule{"document-type", Severity::kError, DocumentType, "Take the declaration out."},
    LintRule{"tags-do-not-match", Severity::kError, TagsDoNotMatch, "Close every element with a tag of its own name."},
};

}  // namespace

std::span<const LintRule> TextRules() {
  return kRules;
}

}  // namespace authoring
