// What a bundle holds, read without unpacking it: the members of an archive, or the files of a folder that is to
// become one. One thread at a time.
#ifndef QUARVEL_AUTHORING_CONTENTS_H
#define QUARVEL_AUTHORING_CONTENTS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace authoring {

struct Member {
  std::string name;  // with "/" below the top
  uint64_t size = 0;
  uint64_t packedSize = 0;    // in a folder the same as `size`
  uint32_t crc = 0;           // archives only
  bool endsAsFolder = false;  // the name ends with "/"
  bool hasFolderBit = false;  // the Unix folder bit, by which the library tells a folder
};

class Contents {
 public:
  // Opens a folder or a zip archive. Throws Failure (kFile) when it is neither.
  [[nodiscard]] static std::unique_ptr<Contents> Open(const std::string& path);
  virtual ~Contents() = default;

  const std::string& path() const { return m_path; }
  virtual bool isArchive() const = 0;

  // An archive's in its own order, a folder's sorted by name.
  const std::vector<Member>& members() const { return m_members; }
  const Member* Find(const std::string& name) const;

  // A manifest's text; none when there is no such member. Throws Failure (kFile) when it is damaged or larger than any
  // manifest is.
  std::optional<std::string> ReadManifest(const std::string& name);

  // A member's whole content. Throws Failure (kFile) when it is damaged or too large for memory.
  virtual std::string Read(const Member& member) = 0;

 protected:
  explicit Contents(const std::string& path) : m_path(path) {}

  std::string m_path;
  std::vector<Member> m_members;
};

}  // namespace authoring

#endif
