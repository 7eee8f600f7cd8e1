// What changed from one bundle to another.
#ifndef QUARVEL_AUTHORING_DIFF_H
#define QUARVEL_AUTHORING_DIFF_H

#include <string>
#include <vector>

namespace authoring {

// One difference. An empty `before` or `after` stands for something that is new or gone.
struct Difference {
  std::string what;   // "package chess", "group Games", "file Apps/chess.pen", "bundle"
  std::string field;  // "version", "content", ...; empty when the whole thing is new or gone
  std::string before;
  std::string after;
};

// Groups go by name, packages by GUID (by file where they have none), files by member name, content by size and
// checksum. Throws Failure (kFile) when one of the two does not load.
std::vector<Difference> Diff(const std::string& before, const std::string& after);

// The difference in one line.
std::string ToText(const Difference& difference);

}  // namespace authoring

#endif
