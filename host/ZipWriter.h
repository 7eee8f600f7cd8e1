// Writes a zip file member by member. Throws a Failure that names the file when it cannot be written; call Close to
// learn of a failure at the end, such as a full disk. A file that is not closed is removed.
#ifndef QUARVEL_HOST_ZIPWRITER_H
#define QUARVEL_HOST_ZIPWRITER_H

#include <memory>
#include <string>
#include <string_view>

class ZipWriter {
 public:
  explicit ZipWriter(const std::string& path);
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  void Add(const std::string& name, std::string_view content);
  void Close();

 private:
  void Require(int minizipResult) const;

  std::string m_path;
  void* m_zip;
};

#endif
