#include "Common/zip/ZipArchive.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "Common/zip/LittleEndian.h"

namespace {

// Enough that a read of the disk is rare, little enough that what was read is still in the processor's cache.
constexpr size_t kWindowSize = 128 * 1024;

// A member's own header, without name and extra fields.
using Head = uint8_t[30];
constexpr uint32_t kHeadMark = 0x04034B50;
constexpr uint16_t kSizesFollow = 8;           // the flag of a member whose sizes stand behind its bytes
constexpr uint32_t kInLongField = 0xFFFFFFFF;  // stands for a size that the zip64 field has
constexpr size_t kNameSizeAt = 26;
constexpr size_t kExtraSizeAt = 28;

bool IsSound(const Head& head, const ZipMemberPlace& place) {
  const uint32_t packedSize = ReadU32(head + 18);
  const uint32_t size = ReadU32(head + 22);
  if (ReadU32(head) != kHeadMark || ReadU16(head + 8) != place.method ||
      ReadU16(head + kNameSizeAt) != place.nameSize) {
    return false;
  }
  if (ReadU16(head + 6) & kSizesFollow) return true;
  return ReadU32(head + 14) == place.checksum && (packedSize == kInLongField || packedSize == place.packedSize) &&
         (size == kInLongField || size == place.size);
}

}  // namespace

bool CZipFile::Open(const char* path) {
  // Without O_NONBLOCK a pipe of that name would keep the caller waiting.
  m_own = UniqueFd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return Use(m_own.get());
}

bool CZipFile::Use(int descriptor) {
  struct stat status {};
  if (descriptor < 0 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  m_descriptor = descriptor;
  m_size = static_cast<uint64_t>(status.st_size);
  return true;
}

size_t CZipFile::ReadAt(uint64_t position, uint8_t* out, size_t size) const {
  size_t done = 0;
  while (done < size) {
    const ssize_t got = pread(m_descriptor, out + done, size - done, static_cast<off_t>(position + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  return done;
}

size_t CZipReader::Read(uint64_t position, std::span<uint8_t> out) {
  size_t done = 0;
  while (done < out.size()) {
    const auto bytes = Peek(position + done, out.size() - done);
    if (bytes.empty()) break;
    memcpy(out.data() + done, bytes.data(), bytes.size());
    done += bytes.size();
  }
  return done;
}

std::span<const uint8_t> CZipReader::Peek(uint64_t position, uint64_t limit) {
  if (!m_windows[m_latest].Holds(position)) {
    m_latest ^= 1;
    Window& window = m_windows[m_latest];
    if (!window.Holds(position)) {
      // The end of the file is read as one window: minizip looks for the directory backwards from there.
      const uint64_t lastStart = m_file.size() > kWindowSize ? m_file.size() - kWindowSize : 0;
      window.bytes.resize(kWindowSize);
      window.start = std::min(position, lastStart);
      window.size = position < m_file.size() ? m_file.ReadAt(window.start, window.bytes.data(), kWindowSize) : 0;
    }
  }
  const Window& window = m_windows[m_latest];
  if (!window.Holds(position)) return {};
  const size_t offset = static_cast<size_t>(position - window.start);
  return {window.bytes.data() + offset, static_cast<size_t>(std::min<uint64_t>(limit, window.size - offset))};
}

CZipMember::~CZipMember() {
  if (m_inflateReady) inflateEnd(&m_inflate);
}

bool CZipMember::HasSoundHead(const CZipFile& file, const ZipMemberPlace& place) {
  Head head = {};
  file.ReadAt(place.head, head, sizeof(head));
  return IsSound(head, place);
}

int CZipMember::Open(const ZipMemberPlace& place) {
  Head head = {};
  m_reader.Read(place.head, head);
  if (!IsSound(head, place)) return UNZ_BADZIPFILE;
  m_position = place.head + sizeof(head) + ReadU16(head + kNameSizeAt) + ReadU16(head + kExtraSizeAt);
  m_stored = place.method == 0;
  m_ended = false;
  m_packedLeft = place.packedSize;
  m_unpackedLeft = place.size;
  if (m_stored) return UNZ_OK;
  // A negative window size stands for deflated data without a zlib header.
  const int ready = m_inflateReady ? inflateReset(&m_inflate) : inflateInit2(&m_inflate, -MAX_WBITS);
  m_inflateReady = m_inflateReady || ready == Z_OK;
  return ready == Z_OK ? UNZ_OK : UNZ_INTERNALERROR;
}

int64_t CZipMember::Read(std::span<uint8_t> out) {
  out = out.first(static_cast<size_t>(std::min<uint64_t>(out.size(), m_unpackedLeft)));
  if (out.empty() || m_ended) return 0;
  const int64_t got = m_stored ? ReadStored(out) : ReadDeflated(out);
  if (got > 0) m_unpackedLeft -= static_cast<uint64_t>(got);
  return got;
}

int64_t CZipMember::ReadStored(std::span<uint8_t> out) {
  if (m_packedLeft == 0) return 0;
  const auto bytes = m_reader.Peek(m_position, std::min<uint64_t>(m_packedLeft, out.size()));
  if (bytes.empty()) return -1;
  memcpy(out.data(), bytes.data(), bytes.size());
  m_position += bytes.size();
  m_packedLeft -= bytes.size();
  return static_cast<int64_t>(bytes.size());
}

int64_t CZipMember::ReadDeflated(std::span<uint8_t> out) {
  m_inflate.next_out = out.data();
  m_inflate.avail_out = static_cast<uInt>(out.size());
  int status = Z_OK;
  while (status == Z_OK && m_inflate.avail_out > 0) {
    const auto packed = m_reader.Peek(m_position, m_packedLeft);
    m_inflate.next_in = const_cast<Bytef*>(packed.data());  // zlib only reads it
    m_inflate.avail_in = static_cast<uInt>(packed.size());
    status = inflate(&m_inflate, Z_SYNC_FLUSH);
    const size_t used = packed.size() - m_inflate.avail_in;
    m_position += used;
    m_packedLeft -= used;
  }
  m_ended = status == Z_STREAM_END;
  const auto got = static_cast<int64_t>(out.size() - m_inflate.avail_out);
  return status == Z_OK || status == Z_STREAM_END ? got : -1;
}
