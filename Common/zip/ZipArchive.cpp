#include "Common/zip/ZipArchive.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

namespace {

// Enough that a read of the disk is rare, little enough that what was read is still in the processor's cache.
constexpr size_t kWindowSize = 128 * 1024;

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

CZipReader::CZipReader(const CZipFile& file) : m_file(file) {
  zlib_filefunc64_def functions = Functions(this);
  m_handle.reset(unzOpen2_64("", &functions));
}

zlib_filefunc64_def CZipReader::Functions(CZipReader* self) {
  zlib_filefunc64_def functions{};
  functions.opaque = self;
  functions.zopen64_file = [](voidpf opaque, const void*, int) { return opaque; };
  functions.zread_file = [](voidpf opaque, voidpf, void* out, uLong size) {
    return static_cast<uLong>(static_cast<CZipReader*>(opaque)->Read(static_cast<uint8_t*>(out), size));
  };
  functions.zwrite_file = [](voidpf, voidpf, const void*, uLong) { return uLong{0}; };
  functions.ztell64_file = [](voidpf opaque, voidpf) {
    return static_cast<ZPOS64_T>(static_cast<CZipReader*>(opaque)->m_position);
  };
  functions.zseek64_file = [](voidpf opaque, voidpf, ZPOS64_T offset, int origin) {
    return static_cast<CZipReader*>(opaque)->Seek(offset, origin) ? 0L : -1L;
  };
  functions.zclose_file = [](voidpf, voidpf) { return 0; };
  functions.zerror_file = [](voidpf, voidpf) { return 0; };
  return functions;
}

bool CZipReader::Seek(uint64_t offset, int origin) {
  const uint64_t from = origin == ZLIB_FILEFUNC_SEEK_CUR   ? m_position
                        : origin == ZLIB_FILEFUNC_SEEK_END ? m_file.size()
                                                           : 0;
  m_position = from + offset;
  return m_position >= from;
}

size_t CZipReader::Read(uint8_t* out, size_t size) {
  // minizip reads the directory byte by byte.
  const Window& window = m_windows[m_latest];
  if (size == 1 && window.Holds(m_position)) {
    *out = window.bytes[static_cast<size_t>(m_position++ - window.start)];
    return 1;
  }
  size_t done = 0;
  while (done < size) {
    const auto bytes = Peek(m_position, size - done);
    if (bytes.empty()) break;
    memcpy(out + done, bytes.data(), bytes.size());
    done += bytes.size();
    m_position += bytes.size();
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

int CZipMember::Open(const ZipMemberPlace& place) {
  const unzFile zip = m_reader.handle();
  unz64_file_pos position = place.position;
  int status = unzGoToFilePos64(zip, &position);
  int method = 0;
  int level = 0;
  // Opened as it is packed: minizip checks the member's own header against the directory and tells where the data is.
  if (status == UNZ_OK) status = unzOpenCurrentFile2(zip, &method, &level, 1);
  if (status != UNZ_OK) return status;
  m_position = unzGetCurrentFileZStreamPos64(zip);
  unzCloseCurrentFile(zip);

  m_stored = place.isStored;
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
  if (out.empty()) return 0;
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
  if (status == Z_STREAM_END) m_packedLeft = 0;
  const auto got = static_cast<int64_t>(out.size() - m_inflate.avail_out);
  if (status == Z_STREAM_END && m_inflate.avail_out > 0) m_unpackedLeft = static_cast<uint64_t>(got);
  return status == Z_OK || status == Z_STREAM_END ? got : -1;
}
