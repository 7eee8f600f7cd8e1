#include "authoring/BomWriter.h"

#include <fmt/format.h>

#include <iterator>

namespace authoring {

std::string WriteBom(std::span<const BomEntry> entries) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<BOM>\n";
  auto out = std::back_inserter(text);
  for (const BomEntry& entry : entries) {
    fmt::format_to(out, "  <File name=\"{}\"", EscapeXml(entry.name));
    if (!entry.folder.empty()) fmt::format_to(out, " folder=\"{}\"", EscapeXml(entry.folder));
    fmt::format_to(out, " subject=\"{}\" signature=\"{}\"/>\n", EscapeXml(entry.subject), EscapeXml(entry.signature));
  }
  return text + "</BOM>\n";
}

std::string EscapeXml(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      case '\'':
        escaped += "&apos;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace authoring
