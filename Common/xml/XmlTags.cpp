#include "Common/xml/XmlTags.h"

namespace xmltags {

const char* FindEnd(const char* tag, const char* end) {
  if (!StartsWith(tag, end, kCData)) return Find(tag, end, '>');
  const std::string_view rest(tag, static_cast<size_t>(end - tag));
  const size_t close = rest.find(kCDataEnd, kCData.size());
  return close == std::string_view::npos ? nullptr : tag + close + kCDataEnd.size() - 1;
}

Step Scan(const char* tag, const char* end) {
  if (StartsWith(tag, end, "</") || StartsWith(tag, end, kCData) || IsComment(tag, end)) {
    const char* close = FindEnd(tag, end);
    return {close ? close + 1 : nullptr, tag[1] == '/' ? -1 : 0};
  }
  bool quoted = false;
  for (const char* at = tag + 1; at < end; ++at) {
    if (*at == '>') return {at + 1, 1};
    if (*at == '"') quoted = !quoted;
    if (*at == '/' && !quoted) return {at + 1, 0};
  }
  return {nullptr, 0};
}

bool IsPlainTag(const char* tag, const char* close) {
  if (!Find(tag, close, '/')) return true;
  const Step step = Scan(tag, close + 1);
  return close[-1] == '/' ? step.next == close : step.depth == 1;
}

}  // namespace xmltags
