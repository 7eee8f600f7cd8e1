// Takes pen ids out of texts that leave the user's hands: each becomes "pen-1", "pen-2" and so on, the same one
// everywhere. Used by one thread.
#ifndef QUARVEL_HOST_MASKING_H
#define QUARVEL_HOST_MASKING_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Masking {
 public:
  void Add(uint64_t id);
  // Adds every pen id that the text tells as one: "PenId=81985529216486895" in the log, "0x..." anywhere.
  void AddFrom(std::string_view text);
  // The text without the ids. Decimal numbers of few digits stay, since they are counts and codes.
  std::string Apply(std::string_view text) const;

 private:
  std::vector<uint64_t> m_ids;
};

#endif
