// Takes out of texts that leave the user's hands what says whose they are: pen ids, pen names and folders become
// "pen-1", "name-1", "/folder-1" and so on, the same one everywhere. Used by one thread.
#ifndef QUARVEL_HOST_MASKING_H
#define QUARVEL_HOST_MASKING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Masking {
 public:
  void Add(uint64_t id);
  // Adds every pen id that the text tells as one: "PenId=81985529216486895" in the log, "0x..." anywhere.
  void AddFrom(std::string_view text);
  // A pen's name; an empty one or a single character stays.
  void AddName(const std::string& name);
  // The folder of a file that is named by its whole path; /tmp, which is everybody's, stays.
  void AddFolderOf(const std::string& path);
  // The text without ids, names and folders. Decimal numbers of few digits stay, since they are counts and codes.
  std::string Apply(std::string_view text) const;

 private:
  struct Word {
    std::string text;
    std::string mask;
  };
  void AddWord(const std::string& text, std::string mask);
  std::string WithoutWords(std::string_view text) const;

  std::vector<uint64_t> m_ids;
  std::vector<Word> m_words;  // the longest first
  size_t m_names = 0;
  size_t m_folders = 0;
};

#endif
