#include "Common/xml/XmlTags.h"

#include <utility>

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

const char* CloseTable::Find(const char* tag, const char* end) {
  const auto wanted = static_cast<uint32_t>(tag - m_begin);
  while (m_next < m_entries.size() && m_entries[m_next].tag < wanted) ++m_next;
  if (m_next == m_entries.size() || m_entries[m_next].tag != wanted) Fill(tag);
  if (m_entries.empty() || m_entries[m_next].close == kNone) return nullptr;
  const char* close = m_begin + m_entries[m_next].close;
  return close < end && xmltags::Find(close, end, '>') ? close : nullptr;
}

// Every element waits at the depth that it stands at; a closing tag down to that depth is the one of all that wait
// there.
void CloseTable::Fill(const char* from) {
  m_entries.clear();
  m_next = 0;
  const auto cost = static_cast<size_t>(m_end - from);
  if (cost > m_budget) return;
  m_budget -= cost;

  std::vector<uint32_t> waiting;  // the latest at each depth: 0, -1, 1, -2, 2, ...
  int depth = 0;
  const auto latest = [&waiting](int at) -> uint32_t& {
    const size_t slot = at < 0 ? static_cast<size_t>(-(at + 1)) * 2 + 1 : static_cast<size_t>(at) * 2;
    if (slot >= waiting.size()) waiting.resize(slot + 1, kNone);
    return waiting[slot];
  };
  for (const char* tag = from; tag; tag = xmltags::Find(tag, m_end, '<')) {
    const Step step = Scan(tag, m_end);
    if (!step.next) break;
    const auto offset = static_cast<uint32_t>(tag - m_begin);
    if (step.depth < 0) {
      uint32_t entry = std::exchange(latest(depth - 1), kNone);
      while (entry != kNone) entry = std::exchange(m_entries[entry].close, offset);
    } else {
      uint32_t& last = latest(depth);
      m_entries.push_back({offset, last});
      last = static_cast<uint32_t>(m_entries.size() - 1);
    }
    depth += step.depth;
    tag = step.next;
  }
  for (uint32_t entry : waiting) {
    while (entry != kNone) entry = std::exchange(m_entries[entry].close, kNone);
  }
}

}  // namespace xmltags
