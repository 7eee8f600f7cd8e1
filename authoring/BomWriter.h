// The text of a signature manifest. The library's parser takes attributes only in double quotes and on the line of the
// element's name, so each entry is one line.
#ifndef QUARVEL_AUTHORING_BOMWRITER_H
#define QUARVEL_AUTHORING_BOMWRITER_H

#include <span>
#include <string>
#include <string_view>

namespace authoring {

// The record of one signed file. `folder` and `name` are written as the bundle manifest writes them, because the two
// joined by "/" are the key under which the library looks for the record.
struct BomEntry {
  std::string name;
  std::string folder;     // empty for a file at the top of the bundle
  std::string subject;    // the signer's, in the one-line form
  std::string signature;  // base64 on one line
};

std::string WriteBom(std::span<const BomEntry> entries);

// Escapes the five characters that XML reserves.
std::string EscapeXml(std::string_view text);

}  // namespace authoring

#endif
