// Deflated data of a member: whatever is inflated with, the contents are those that zlib makes of it. The first byte
// says how much longer or shorter than that the archive claims them to be.
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>

#include "Common/zip/ZipArchive.h"
#include "fuzz/Fuzz.h"

namespace {

constexpr size_t kHeadSize = 30;
constexpr size_t kMostInflated = 1 << 20;

struct Contents {
  std::string bytes;
  int64_t end;  // what the last read returned
};

Contents ReadAll(const CZipFile& file, const ZipMemberPlace& place, CZipMember::Inflation inflation, size_t step) {
  CZipReader reader(file);
  CZipMember member(reader);
  FUZZ_CHECK(member.Open(place, inflation) == UNZ_OK);
  Contents contents;
  std::string buffer(step, '\0');
  while ((contents.end = member.Read({reinterpret_cast<uint8_t*>(buffer.data()), step})) > 0) {
    contents.bytes.append(buffer, 0, static_cast<size_t>(contents.end));
  }
  return contents;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  std::string archive("PK\3\4\24\0\10\0\10\0", 10);  // sizes and checksum follow the data, and are not looked at
  archive.resize(kHeadSize);
  archive.append(reinterpret_cast<const char*>(data + 1), size - 1);
  const int descriptor = memfd_create("inflate", MFD_CLOEXEC);
  FUZZ_CHECK(write(descriptor, archive.data(), archive.size()) == static_cast<ssize_t>(archive.size()));
  CZipFile file;
  FUZZ_CHECK(file.Use(descriptor));

  ZipMemberPlace place{
      .head = 0, .packedSize = size - 1, .size = kMostInflated, .checksum = 0, .method = 8, .nameSize = 0};
  const std::string all = ReadAll(file, place, CZipMember::Inflation::kZlib, 5000).bytes;
  const int64_t claimed = static_cast<int64_t>(all.size()) + static_cast<int8_t>(data[0]);
  place.size = static_cast<uint64_t>(std::max<int64_t>(claimed, 0));
  const size_t whole = std::min(all.size(), static_cast<size_t>(place.size));
  place.checksum =
      static_cast<uint32_t>(crc32(0, reinterpret_cast<const uint8_t*>(all.data()), static_cast<uInt>(whole)));
  for (const size_t step : {size_t{1} << 18, size_t{700}}) {
    const Contents slow = ReadAll(file, place, CZipMember::Inflation::kZlib, step);
    const Contents fast = ReadAll(file, place, CZipMember::Inflation::kFastest, step);
    FUZZ_CHECK(fast.end == CZipMember::kInDoubt || (fast.end == slow.end && fast.bytes == slow.bytes));
  }
  close(descriptor);
  return 0;
}
