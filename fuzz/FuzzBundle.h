// A bundle of two manifests and a file, for the targets that read manifests: packed, loaded and cleaned away again.
#ifndef QUARVEL_FUZZ_FUZZBUNDLE_H
#define QUARVEL_FUZZ_FUZZBUNDLE_H

#include <minizip/zip.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <filesystem>
#include <string>

#include "fuzz/Fuzz.h"
#include "installer/bundle/Bundle.h"

class FuzzBundle {
 public:
  FuzzBundle(const std::string& updateXml, const std::string& bomXml)
      : m_path((std::filesystem::temp_directory_path() / ("quarvel-fuzz-" + std::to_string(getpid()) + ".zip"))) {
    zipFile zip = zipOpen64(m_path.c_str(), APPEND_STATUS_CREATE);
    FUZZ_CHECK(zip);
    Add(zip, "update.xml", updateXml);
    Add(zip, "bom.xml", bomXml);
    Add(zip, "Files/a.bin", "content");
    zipClose(zip, nullptr);
    // Runs side by side have folders of their own.
    const utimbuf times{getpid(), getpid()};
    utime(m_path.c_str(), &times);
    m_result = m_bundle.Load(m_path.c_str());
  }
  ~FuzzBundle() {
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
    std::filesystem::remove_all(m_bundle.extractFolder(), ignored);
  }
  FuzzBundle(const FuzzBundle&) = delete;
  FuzzBundle& operator=(const FuzzBundle&) = delete;

  CBundle& bundle() { return m_bundle; }
  InsResCode result() const { return m_result; }

 private:
  static void Add(zipFile zip, const char* member, const std::string& content) {
    const zip_fileinfo info{};
    zipOpenNewFileInZip64(zip, member, &info, nullptr, 0, nullptr, 0, nullptr, 0, 0, 0);
    zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size()));
    zipCloseFileInZip(zip);
  }

  std::string m_path;
  CBundle m_bundle;
  InsResCode m_result;
};

#endif
