// Reading zip archives below CZip: one open file, any number of readers over it, and the bytes of one member at a time.
// minizip finds its way through the archive; members are read and inflated here, straight from large reads, without
// its copies and without the checksum, whose result an extraction does not look at.
#ifndef QUARVEL_COMMON_ZIP_ZIPARCHIVE_H
#define QUARVEL_COMMON_ZIP_ZIPARCHIVE_H

#include <minizip/unzip.h>
#include <zlib.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Common/FolderTree.h"
#include "Common/zip/FastInflate.h"

// An open archive file. It keeps no position, so threads share it.
class CZipFile {
 public:
  // False when there is no regular file that can be read.
  bool Open(const char* path);
  // The same with a file that is open already and stays its owner's.
  bool Use(int descriptor);
  bool IsOpen() const { return m_descriptor >= 0; }
  // Reads up to `size` bytes at `position`; fewer only at the end of the file or where it cannot be read.
  size_t ReadAt(uint64_t position, uint8_t* out, size_t size) const;
  uint64_t size() const { return m_size; }

 private:
  UniqueFd m_own;
  int m_descriptor = -1;
  uint64_t m_size = 0;
};

// An archive's bytes through buffers of its own; one thread uses it.
class CZipReader {
 public:
  // `file` must outlive the reader.
  explicit CZipReader(const CZipFile& file) : m_file(file) {}
  CZipReader(const CZipReader&) = delete;
  CZipReader& operator=(const CZipReader&) = delete;

  // Bytes of the file at `position`, at most `limit` and at least one unless the file ends there or cannot be read.
  // Valid until the next call on this reader.
  std::span<const uint8_t> Peek(uint64_t position, uint64_t limit);

  // Copies bytes of the file; returns how many, fewer than asked for only where it ends or cannot be read.
  size_t Read(uint64_t position, std::span<uint8_t> out);

 private:
  // A run of the file. There are two, since reading members goes back and forth between directory and data.
  struct Window {
    uint64_t start = 0;
    size_t size = 0;
    std::vector<uint8_t> bytes;
    bool Holds(uint64_t position) const { return position >= start && position - start < size; }
  };

  const CZipFile& m_file;
  std::array<Window, 2> m_windows;
  size_t m_latest = 0;  // the window that was read last
};

// Where a member lies and how it is packed, as the archive's directory has it. Sizes are in bytes.
struct ZipMemberPlace {
  uint64_t head;  // position in the file of the member's own header, which its packed bytes follow
  uint64_t packedSize;
  uint64_t size;
  uint32_t checksum;  // CRC-32 of the contents
  uint16_t method;
  uint16_t nameSize;
};

// The contents of members, one after the other; one thread uses it.
class CZipMember {
 public:
  // What deflated members are inflated with. zlib has the last word on what a member holds: a damaged one is what zlib
  // makes of it.
  enum class Inflation {
    kZlib,
    kFastest,  // members end in kInDoubt where zlib may see them otherwise
  };
  // What Read returns instead of a number of bytes.
  enum : int64_t {
    kUnreadable = -1,
    kInDoubt = -2,  // nothing that was read may count; the member is to be opened again for zlib
  };

  explicit CZipMember(CZipReader& reader) : m_reader(reader) {}
  ~CZipMember();
  CZipMember(const CZipMember&) = delete;
  CZipMember& operator=(const CZipMember&) = delete;

  // Whether members packed this way can be read at all.
  static bool IsKnownMethod(uint16_t method) { return method == 0 || method == Z_DEFLATED; }

  // Whether a member could be opened: its own header agrees with the directory, as minizip sees it.
  static bool HasSoundHead(const CZipFile& file, const ZipMemberPlace& place);

  // Turns to a member. Returns minizip's status, UNZ_OK on success.
  int Open(const ZipMemberPlace& place, Inflation inflation);
  // Unpacks up to `out.size()` bytes; 0 at the end of the member, kUnreadable when it cannot be read further, or
  // kInDoubt. Never gives more than the archive states as the member's size.
  int64_t Read(std::span<uint8_t> out);
  // Bytes of the member's stated size that were not unpacked yet.
  uint64_t left() const { return m_left; }

 private:
  enum class Way { kStored, kZlib, kFast };

  int64_t ReadStored(std::span<uint8_t> out);
  int64_t ReadWithZlib(std::span<uint8_t> out);
  int64_t ReadFast(std::span<uint8_t> out);
  CFastInflate::Step RunFast(std::span<uint8_t> out);
  bool EndsWell();

  CZipReader& m_reader;
  z_stream m_zlib{};
  bool m_zlibReady = false;
  std::optional<CFastInflate> m_fast;
  Way m_way = Way::kStored;
  bool m_ended = false;     // the deflated data has come to its end
  uint64_t m_position = 0;  // of the next packed byte in the file
  uint64_t m_packedLeft = 0;
  uint64_t m_size = 0;  // as the archive states it
  uint64_t m_left = 0;  // of it
  uint32_t m_checksum = 0;
};

#endif
