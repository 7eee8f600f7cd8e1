#include "Common/Properties.h"

#include <cctype>

namespace {

// Without the spaces, and only the spaces, at both ends.
std::string Trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  return std::string(text.substr(begin, text.find_last_not_of(' ') - begin + 1));
}

}  // namespace

CProperties::CProperties(std::string text) {
  Read(text);
}

bool CProperties::Read(const std::string& text) {
  m_values.clear();
  for (std::string_view rest = text; !rest.empty();) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty()) continue;
    if (!std::isprint(static_cast<unsigned char>(line.front()))) return false;
    AddLine(line);
  }
  return true;
}

void CProperties::AddLine(std::string_view line) {
  const size_t mark = line.find_first_of(";#[=:");
  if (mark == std::string_view::npos || (line[mark] != '=' && line[mark] != ':')) return;
  m_values.emplace(Trimmed(line.substr(0, mark)), Trimmed(line.substr(mark + 1)));
}

std::string CProperties::GetValue(std::string key) const {
  const auto found = m_values.find(key);
  return found == m_values.end() ? std::string() : found->second;
}
