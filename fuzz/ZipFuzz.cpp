// Archives: unpacked twice into a folder, and one member read into memory.
#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "Common/Zip.h"
#include "fuzz/Fuzz.h"

namespace {

namespace fs = std::filesystem;

// A folder for the whole run, in memory where the machine has that.
const fs::path& Scratch() {
  static const fs::path scratch = [] {
    std::string pattern =
        (fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string()) + "/zipfuzz-XXXXXX";
    FUZZ_CHECK(mkdtemp(pattern.data()));
    atexit([] { fs::remove_all(Scratch()); });
    return fs::path(pattern);
  }();
  return scratch;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fs::path outer = Scratch() / "outer";
  const std::string zip = Scratch() / "a.zip";
  const std::string out = outer / "out";
  fs::create_directories(outer);
  std::ofstream(zip, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));

  const int32_t first = CZip::ExtractZip(zip.c_str(), out.c_str(), true, nullptr);
  FUZZ_CHECK(CZip::ExtractZip(zip.c_str(), out.c_str(), true, nullptr) == first);
  std::string content;
  CZip::ReadInternalFile(zip.c_str(), "a", content, nullptr);

  // Nothing lies beside the folder, and nothing unfinished in it.
  for (const auto& entry : fs::directory_iterator(Scratch())) {
    FUZZ_CHECK(entry.path() == outer || entry.path() == zip);
  }
  for (const auto& entry : fs::recursive_directory_iterator(outer)) {
    FUZZ_CHECK(entry.path().native().starts_with(out));
    FUZZ_CHECK(!entry.is_symlink() && !entry.path().filename().native().starts_with(".quarvel-"));
  }
  fs::remove_all(outer);
  return 0;
}
