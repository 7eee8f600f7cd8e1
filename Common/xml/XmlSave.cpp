// Saving a document: encodings, transforms and files.
#include <cstdint>
#include <cstdio>
#include <memory>

#include "Common/xml/XmlDocument.h"

namespace {

constexpr uint32_t kReplacement = 0xFFFD;

// Takes the next character off a UTF-8 text; what is not UTF-8 becomes a replacement character, byte for byte.
uint32_t TakeCharacter(std::string_view& text) {
  const auto byte = [&text](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t first = byte(0);
  const size_t size = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  uint32_t code = size == 1 ? first : first & (0xFFU >> (size + 1));
  bool valid = size <= text.size() && (first < 0x80 || (first >= 0xC2 && first <= 0xF4));
  for (size_t i = 1; valid && i < size; ++i) {
    valid = (byte(i) & 0xC0) == 0x80;
    code = (code << 6) | (byte(i) & 0x3F);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  valid = valid && code >= kSmallest[size] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  text.remove_prefix(valid ? size : 1);
  return valid ? code : kReplacement;
}

void AppendUnit(uint32_t unit, std::string& out) {
  out += static_cast<char>(unit & 0xFF);
  out += static_cast<char>(unit >> 8 & 0xFF);
}

// UTF-16, low byte first, with its mark.
std::string ToUtf16(std::string_view text) {
  std::string out = "\xFF\xFE";
  out.reserve(text.size() * 2 + 2);
  while (!text.empty()) {
    const uint32_t code = TakeCharacter(text);
    if (code < 0x10000) {
      AppendUnit(code, out);
    } else {
      AppendUnit(0xD800 + ((code - 0x10000) >> 10), out);
      AppendUnit(0xDC00 + ((code - 0x10000) & 0x3FF), out);
    }
  }
  return out;
}

std::string Transformed(const std::string& text, XMLTransform& transform, void* data) {
  std::string out(text.size() + 100, '\0');
  out.resize(std::min(transform.Encode(text.data(), text.size(), out.data(), out.size(), data), out.size()));
  return out;
}

enum SaveMode { kUtf8 = 0, kStream = 1, kUtf16 = 3 };

}  // namespace

bool XML::Save(const void* target, bool formatting, int mode, XMLTransform* transform, void* data) {
  if (mode != kUtf8 && mode != kStream && mode != kUtf16) return false;
  if (!target && (mode == kStream || !m_hasFileName)) return false;
  if (mode != kStream) m_header->SetEncoding(mode == kUtf8 ? "UTF-8" : "UTF-16");

  std::string text;
  if (!Export(text, formatting)) return false;
  if (mode == kUtf16) text = ToUtf16(text);
  if (transform) text = Transformed(text, *transform, data);

  if (mode == kStream) {
    FILE* stream = static_cast<FILE*>(const_cast<void*>(target));
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
  }
  FILE* file = std::fopen(target ? static_cast<const char*>(target) : m_fileName.c_str(), "wb");
  if (!file) return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  return std::fclose(file) == 0 && written;
}
