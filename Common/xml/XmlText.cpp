#include "Common/xml/XmlText.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <cwchar>
#include <utility>

#include "Common/xml/XmlDocument.h"

namespace {

constexpr std::pair<std::string_view, char> kReferences[] = {
    {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&lt;", '<'}, {"&gt;", '>'}};

// The character of a code in the locale's encoding, nothing when it has none.
void AppendCharacter(uint32_t code, std::string& out) {
  if (code == 0) return;
  char bytes[MB_LEN_MAX];
  std::mbstate_t state{};
  const size_t size = std::wcrtomb(bytes, static_cast<wchar_t>(code), &state);
  if (size != static_cast<size_t>(-1)) out.append(bytes, size);
}

int DigitOf(char c, bool hex) {
  if (c >= '0' && c <= '9') return c - '0';
  if (hex && c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (hex && c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Decodes the numeric reference at the text's start; its length, 0 for none. One character closes it, whichever.
size_t DecodeNumber(std::string_view text, std::string& out) {
  const bool hex = text.size() > 2 && (text[2] == 'x' || text[2] == 'X');
  const size_t digits = hex ? 3 : 2;
  constexpr uint32_t kNoCharacter = 0x110000;
  uint32_t code = 0;
  size_t at = digits;
  for (int digit = 0; at < text.size() && (digit = DigitOf(text[at], hex)) >= 0; ++at) {
    code = std::min(code * (hex ? 16U : 10U) + static_cast<uint32_t>(digit), kNoCharacter);
  }
  if (at == digits) return 0;
  if (code < kNoCharacter) AppendCharacter(code, out);
  return std::min(at + 1, text.size());
}

// Decodes the reference at the text's start; its length, 0 for a bare "&".
size_t DecodeReference(std::string_view text, std::string& out) {
  if (text.starts_with("&#")) return DecodeNumber(text, out);
  for (const auto& [name, character] : kReferences) {
    if (!text.starts_with(name)) continue;
    out += character;
    return name.size();
  }
  return 0;
}

}  // namespace

std::string XML::XMLEncode(std::string_view text) {
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  for (size_t i = 0; i < text.size(); ++i) {
    const auto reference = std::find_if(std::begin(kReferences), std::end(kReferences),
                                        [&](const auto& r) { return r.second == text[i]; });
    const bool numeric = text[i] == '&' && i + 1 < text.size() && text[i + 1] == '#';
    if (reference == std::end(kReferences) || numeric) {
      out += text[i];
    } else {
      out += reference->first;
    }
  }
  return out;
}

std::string XML::XMLDecode(std::string_view text) {
  std::string out;
  xmltext::Read(text, out);
  return out;
}

size_t XML::XMLEncode(std::string_view text, char* out, size_t size) {
  return xmltext::CopyOut(XMLEncode(text), out, size);
}

size_t XML::XMLDecode(std::string_view text, char* out, size_t size) {
  return xmltext::CopyOut(XMLDecode(text), out, size);
}

void xmltext::Read(std::string_view stored, std::string& out) {
  size_t reference = stored.find('&');
  if (reference == std::string_view::npos) {
    out.assign(stored);
    return;
  }
  out.assign(stored, 0, reference);
  while (reference < stored.size()) {
    const size_t size = DecodeReference(stored.substr(reference), out);
    if (size == 0) out += '&';
    const size_t at = reference + std::max<size_t>(size, 1);
    reference = std::min(stored.find('&', at), stored.size());
    out.append(stored, at, reference - at);
  }
}

bool xmltext::ReadsAs(std::string_view stored, std::string_view wanted) {
  const size_t shared = std::min(stored.size(), wanted.size());
  size_t i = 0;
  while (i < shared && stored[i] == wanted[i] && stored[i] != '&') ++i;
  if (i == stored.size()) return i == wanted.size();
  return stored[i] == '&' && XML::XMLDecode(stored.substr(i)) == wanted.substr(i);
}

size_t xmltext::CopyOut(std::string_view text, char* buffer, size_t size) {
  if (buffer && size > 0) {
    const size_t count = std::min(text.size(), size - 1);
    std::memcpy(buffer, text.data(), count);
    buffer[count] = '\0';
  }
  return text.size();
}

std::string_view xmltext::TakeName(std::string_view& tag, bool* plain) {
  *plain = true;
  size_t size = 0;
  for (; size < tag.size(); ++size) {
    const char c = tag[size];
    // A line break does not end a name.
    if (c == ' ' || c == '/' || c == '\t' || c == '>' || c == '"') break;
    if (c == '<' || c == '&' || c == '\'') *plain = false;
  }
  const std::string_view name = tag.substr(0, size);
  tag.remove_prefix(size);
  return name;
}

std::string xmltext::StoredName(std::string_view name) {
  std::string cleaned(name);
  std::erase(cleaned, '<');
  return XML::XMLEncode(cleaned);
}

bool xmltext::TakeVariable(std::string_view& tag, std::string_view& name, std::string_view& value) {
  tag.remove_prefix(std::min(tag.find_first_not_of(" \t"), tag.size()));
  if (tag.empty() || tag.front() == '>' || tag.front() == '/') return false;
  const size_t equals = tag.find('=');
  if (equals == std::string_view::npos) return false;
  name = tag.substr(0, equals);
  tag.remove_prefix(equals + 1);
  if (tag.starts_with('"')) tag.remove_prefix(1);
  const size_t quote = tag.find('"');
  if (quote == std::string_view::npos) return false;
  value = tag.substr(0, quote);
  tag.remove_prefix(quote + 1);
  return true;
}
