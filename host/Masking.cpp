#include "host/Masking.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <optional>

#include "desk/Text.h"

namespace {

bool IsWord(char c) {
  return isalnum(static_cast<unsigned char>(c)) != 0;
}

// Calls `take` with each run of letters and digits and with what stands before it.
template <typename Take>
void ForEachWord(std::string_view text, Take take) {
  size_t done = 0;
  while (done < text.size()) {
    auto rest = text.begin() + static_cast<std::ptrdiff_t>(done);
    auto begin = std::find_if(rest, text.end(), IsWord);
    auto end = std::find_if_not(begin, text.end(), IsWord);
    size_t from = static_cast<size_t>(begin - text.begin());
    size_t to = static_cast<size_t>(end - text.begin());
    take(text.substr(done, from - done), text.substr(from, to - from), text.substr(0, from));
    done = to;
  }
}

bool IsHexId(std::string_view word) {
  return word.starts_with("0x") || word.starts_with("0X");
}

bool IsTold(std::string_view before, std::string_view word) {
  return IsHexId(word) || before.ends_with("PenId=") || before.ends_with("penId=");
}

}  // namespace

void Masking::Add(uint64_t id) {
  if (std::find(m_ids.begin(), m_ids.end(), id) == m_ids.end()) m_ids.push_back(id);
}

void Masking::AddFrom(std::string_view text) {
  ForEachWord(text, [this](std::string_view, std::string_view word, std::string_view before) {
    if (!IsTold(before, word)) return;
    if (std::optional<uint64_t> id = ParsePenId(word)) Add(*id);
  });
}

void Masking::AddWord(const std::string& text, std::string mask) {
  auto shorter =
      std::find_if(m_words.begin(), m_words.end(), [&](const Word& each) { return each.text.size() < text.size(); });
  m_words.insert(shorter, {text, std::move(mask)});
}

void Masking::AddName(const std::string& name) {
  auto same = [&name](const Word& each) { return each.text == name; };
  if (name.size() < 2 || std::any_of(m_words.begin(), m_words.end(), same)) return;
  AddWord(name, fmt::format("name-{}", ++m_names));
}

void Masking::AddFolderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (path.empty() || path[0] != '/' || slash == 0) return;
  std::string folder = path.substr(0, slash);
  auto same = [&folder](const Word& each) { return each.text == folder; };
  if (folder == "/tmp" || std::any_of(m_words.begin(), m_words.end(), same)) return;
  AddWord(folder, fmt::format("/folder-{}", ++m_folders));
}

std::string Masking::WithoutWords(std::string_view text) const {
  std::string masked;
  for (size_t at = 0; at < text.size();) {
    auto word = std::find_if(m_words.begin(), m_words.end(),
                             [&](const Word& each) { return text.substr(at).starts_with(each.text); });
    if (word == m_words.end()) {
      masked += text[at++];
    } else {
      masked += word->mask;
      at += word->text.size();
    }
  }
  return masked;
}

std::string Masking::Apply(std::string_view whole) const {
  std::string text = WithoutWords(whole);
  constexpr size_t longestCount = 9;
  std::string masked;
  masked.reserve(text.size());
  ForEachWord(text, [&](std::string_view between, std::string_view word, std::string_view before) {
    masked += between;
    bool candidate = word.size() > longestCount || IsTold(before, word);
    std::optional<uint64_t> id = candidate ? ParsePenId(word) : std::nullopt;
    auto known = id ? std::find(m_ids.begin(), m_ids.end(), *id) : m_ids.end();
    masked += known == m_ids.end() ? std::string(word) : fmt::format("pen-{}", known - m_ids.begin() + 1);
  });
  return masked;
}
