// A real folder that lives as long as the object.
#ifndef QUARVEL_TESTS_SUPPORT_TEMPFOLDER_H
#define QUARVEL_TESTS_SUPPORT_TEMPFOLDER_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quarvel-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a folder for the test");
    m_path = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  std::string operator/(const std::string& name) const { return (m_path / name).string(); }

  // Writes a file below the folder, making its parents, and returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::filesystem::path file = m_path / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file.string();
  }

 private:
  std::filesystem::path m_path;
};

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

#endif
