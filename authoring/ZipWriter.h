// Writes a bundle's archive so that the same members give the same bytes: every member carries one fixed date and the
// same attributes, and stands where the caller put it. The archive is complete only after Close; without it the
// destructor removes nothing, it only lets go of the file.
#ifndef QUARVEL_AUTHORING_ZIPWRITER_H
#define QUARVEL_AUTHORING_ZIPWRITER_H

#include <cstdint>
#include <string>
#include <string_view>

namespace authoring {

class ZipWriter {
 public:
  // Starts a new file. All operations throw Failure (kFile).
  explicit ZipWriter(const std::string& path);
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  void AddBytes(const std::string& member, std::string_view content);
  void AddFile(const std::string& member, const std::string& file);
  // An entry for a folder, told from a file by the Unix folder bit of its attributes. Bundles do without: the library
  // makes the folders of the files.
  void AddFolder(const std::string& member);
  // An entry with any attributes, for archives that must look wrong.
  void AddBytes(const std::string& member, std::string_view content, uint32_t externalAttributes);

  void Close();

 private:
  void Begin(const std::string& member, uint32_t externalAttributes, bool large);
  void Write(std::string_view block);
  void End();
  void Check(int result) const;

  std::string m_path;
  void* m_zip;
};

}  // namespace authoring

#endif
