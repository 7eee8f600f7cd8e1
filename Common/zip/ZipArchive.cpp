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
  if (m_zlibReady) inflateEnd(&m_zlib);
}

bool CZipMember::HasSoundHead(const CZipFile& file, const ZipMemberPlace& place) {
  Head head = {};
  file.ReadAt(place.head, head, sizeof(head));
  return IsSound(head, place);
}

int CZipMember::Open(const ZipMemberPlace& place, Inflation inflation) {
  Head head = {};
  m_reader.Read(place.head, head);
  if (!IsSound(head, place)) return UNZ_BADZIPFILE;
  m_position = place.head + sizeof(head) + ReadU16(head + kNameSizeAt) + ReadU16(head + kExtraSizeAt);
  m_ended = false;
  m_packedLeft = place.packedSize;
  m_size = m_left = place.size;
  m_checksum = place.checksum;
  const bool isFast = inflation == Inflation::kFastest && CFastInflate::IsThere() && place.size > 0;
  m_way = place.method == 0 ? Way::kStored : isFast ? Way::kFast : Way::kZlib;
  if (m_way == Way::kFast) (m_fast ? *m_fast : m_fast.emplace()).Start();
  if (m_way != Way::kZlib) return UNZ_OK;
  // A negative window size stands for deflated data without a zlib header.
  const int ready = m_zlibReady ? inflateReset(&m_zlib) : inflateInit2(&m_zlib, -MAX_WBITS);
  m_zlibReady = m_zlibReady || ready == Z_OK;
  return ready == Z_OK ? UNZ_OK : UNZ_INTERNALERROR;
}

int64_t CZipMember::Read(std::span<uint8_t> out) {
  out = out.first(static_cast<size_t>(std::min<uint64_t>(out.size(), m_left)));
  if (out.empty() || m_ended) return 0;
  const int64_t got = m_way == Way::kStored ? ReadStored(out) : m_way == Way::kZlib ? ReadWithZlib(out) : ReadFast(out);
  if (got > 0) m_left -= static_cast<uint64_t>(got);
  return got;
}

int64_t CZipMember::ReadStored(std::span<uint8_t> out) {
  if (m_packedLeft == 0) return 0;
  const auto bytes = m_reader.Peek(m_position, std::min<uint64_t>(m_packedLeft, out.size()));
  if (bytes.empty()) return kUnreadable;
  memcpy(out.data(), bytes.data(), bytes.size());
  m_position += bytes.size();
  m_packedLeft -= bytes.size();
  return static_cast<int64_t>(bytes.size());
}

int64_t CZipMember::ReadWithZlib(std::span<uint8_t> out) {
  m_zlib.next_out = out.data();
  m_zlib.avail_out = static_cast<uInt>(out.size());
  int status = Z_OK;
  while (status == Z_OK && m_zlib.avail_out > 0) {
    const auto packed = m_reader.Peek(m_position, m_packedLeft);
    m_zlib.next_in = const_cast<Bytef*>(packed.data());  // zlib only reads it
    m_zlib.avail_in = static_cast<uInt>(packed.size());
    status = inflate(&m_zlib, Z_SYNC_FLUSH);
    const size_t used = packed.size() - m_zlib.avail_in;
    m_position += used;
    m_packedLeft -= used;
  }
  m_ended = status == Z_STREAM_END;
  const auto got = static_cast<int64_t>(out.size() - m_zlib.avail_out);
  return status == Z_OK || status == Z_STREAM_END ? got : kUnreadable;
}

int64_t CZipMember::ReadFast(std::span<uint8_t> out) {
  const auto all = m_reader.Peek(m_position, m_packedLeft);
  if (out.size() == m_size && all.size() == m_packedLeft) {
    const bool isMade = m_fast->RunAtOnce(all, out).made == out.size();
    return isMade && m_fast->EndedWith(m_checksum) ? static_cast<int64_t>(out.size()) : kInDoubt;
  }
  size_t done = 0;
  while (done < out.size()) {
    const CFastInflate::Step step = RunFast(out.subspan(done));
    if (step.used == 0 && step.made == 0) return kInDoubt;
    done += step.made;
  }
  if (out.size() == m_left && !EndsWell()) return kInDoubt;
  return static_cast<int64_t>(done);
}

CFastInflate::Step CZipMember::RunFast(std::span<uint8_t> out) {
  const CFastInflate::Step step = m_fast->Run(m_reader.Peek(m_position, m_packedLeft), out);
  m_position += step.used;
  m_packedLeft -= step.used;
  return step;
}

bool CZipMember::EndsWell() {
  // The mark of the end may still be to come when there is nothing more to unpack.
  while (!m_fast->EndedWith(m_checksum) && RunFast({}).used > 0) {
  }
  return m_fast->EndedWith(m_checksum);
}
