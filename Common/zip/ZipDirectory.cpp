#include "Common/zip/ZipDirectory.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <type_traits>

#include "Common/zip/LittleEndian.h"

namespace {

constexpr size_t kEntrySize = 46;  // without name, extra fields and comment
constexpr uint32_t kEntryMark = 0x02014B50;
constexpr uint32_t kInLongField = 0xFFFFFFFF;  // stands for a value that the zip64 field has
constexpr uint16_t kLongFieldId = 1;
constexpr uint64_t kMostCounted = 0xFFFF;  // entries of a directory that ends in the short form

// minizip's sight of the archive.
class CView {
 public:
  CView(CZipReader& reader, uint64_t size) : m_reader(reader), m_size(size) {}

  zlib_filefunc64_def Functions() {
    zlib_filefunc64_def functions{};
    functions.opaque = this;
    functions.zopen64_file = [](voidpf opaque, const void*, int) { return opaque; };
    functions.zread_file = [](voidpf opaque, voidpf, void* out, uLong size) {
      return static_cast<uLong>(static_cast<CView*>(opaque)->Read(static_cast<uint8_t*>(out), size));
    };
    functions.zwrite_file = [](voidpf, voidpf, const void*, uLong) { return uLong{0}; };
    functions.ztell64_file = [](voidpf opaque, voidpf) {
      return static_cast<ZPOS64_T>(static_cast<CView*>(opaque)->m_position);
    };
    functions.zseek64_file = [](voidpf opaque, voidpf, ZPOS64_T offset, int origin) {
      return static_cast<CView*>(opaque)->Seek(offset, origin) ? 0L : -1L;
    };
    functions.zclose_file = [](voidpf, voidpf) { return 0; };
    functions.zerror_file = [](voidpf, voidpf) { return 0; };
    return functions;
  }

  // Where the first read since the latest call of ForgetReads began.
  uint64_t firstRead() const { return m_firstRead.value_or(0); }
  void ForgetReads() { m_firstRead.reset(); }

 private:
  bool Seek(uint64_t offset, int origin) {
    const uint64_t from = origin == ZLIB_FILEFUNC_SEEK_CUR ? m_position : origin == ZLIB_FILEFUNC_SEEK_END ? m_size : 0;
    m_position = from + offset;
    return m_position >= from;
  }
  size_t Read(uint8_t* out, size_t size) {
    if (!m_firstRead) m_firstRead = m_position;
    const size_t got = m_reader.Read(m_position, {out, size});
    m_position += got;
    return got;
  }

  CZipReader& m_reader;
  const uint64_t m_size;
  uint64_t m_position = 0;
  std::optional<uint64_t> m_firstRead;
};

struct CloseZip {
  void operator()(unzFile handle) const { unzClose(handle); }
};

tm_unz DateOf(uint32_t dos) {
  tm_unz date{};
  date.tm_sec = 2 * (dos & 0x1F);
  date.tm_min = dos >> 5 & 0x3F;
  date.tm_hour = dos >> 11 & 0x1F;
  date.tm_mday = dos >> 16 & 0x1F;
  date.tm_mon = (dos >> 21 & 0xF) - 1;
  date.tm_year = (dos >> 25) + 1980;
  return date;
}

}  // namespace

CZipDirectory::CZipDirectory(const CZipFile& file) : m_reader(file) {
  CView view(m_reader, file.size());
  zlib_filefunc64_def functions = view.Functions();
  const std::unique_ptr<std::remove_pointer_t<unzFile>, CloseZip> zip(unzOpen2_64("", &functions));
  m_isArchive = zip != nullptr;
  if (!zip) return;
  unz_global_info64 info{};
  unzGetGlobalInfo64(zip.get(), &info);
  m_count = info.number_entry;
  // minizip tells where an entry stands in the archive, but not where the archive stands in the file; it reads an entry
  // from its start.
  view.ForgetReads();
  m_firstStatus = unzGoToFirstFile(zip.get());
  m_firstEntry = view.firstRead();
  unz64_file_pos position{};
  if (m_firstStatus == UNZ_OK) m_firstStatus = unzGetFilePos64(zip.get(), &position);
  m_shift = m_firstEntry - position.pos_in_zip_directory;
}

int CZipDirectory::First() {
  if (m_firstStatus != UNZ_OK) return m_firstStatus;
  m_index = 0;
  m_position = m_firstEntry;
  return Read();
}

int CZipDirectory::Next() {
  ++m_index;
  if (m_index == m_count && m_count != kMostCounted) return UNZ_END_OF_LIST_OF_FILE;
  m_position = m_next;
  const int status = Read();
  // The greatest count that the short form can state may stand for more.
  return m_index == kMostCounted && status == UNZ_BADZIPFILE ? UNZ_END_OF_LIST_OF_FILE : status;
}

int CZipDirectory::Read() {
  // Beyond the end of the file minizip reads zeros.
  uint8_t entry[kEntrySize] = {};
  m_reader.Read(m_position, entry);
  if (ReadU32(entry) != kEntryMark) return UNZ_BADZIPFILE;
  const size_t extraSize = ReadU16(entry + 30);
  m_place = {.head = ReadU32(entry + 42),
             .packedSize = ReadU32(entry + 20),
             .size = ReadU32(entry + 24),
             .checksum = ReadU32(entry + 16),
             .method = ReadU16(entry + 10),
             .nameSize = ReadU16(entry + 28)};
  m_date = DateOf(ReadU32(entry + 12));
  m_attributes = ReadU32(entry + 38);
  const uint64_t extra = m_position + kEntrySize + m_place.nameSize;
  m_next = extra + extraSize + ReadU16(entry + 32);

  const size_t nameSize = std::min<size_t>(m_place.nameSize, CFileUtil::kPathSize);
  const auto name = std::span(m_nameBytes).first(nameSize);
  if (m_reader.Read(m_position + kEntrySize, name) != nameSize) return UNZ_ERRNO;
  m_name = {reinterpret_cast<const char*>(m_nameBytes), nameSize};
  m_name = m_name.substr(0, m_name.find('\0'));
  ReadLongFields(extra, extraSize);
  m_place.head += m_shift;
  return UNZ_OK;
}

void CZipDirectory::ReadLongFields(uint64_t position, size_t size) {
  // In the order in which the zip64 field has what is in it.
  uint64_t* const values[] = {&m_place.size, &m_place.packedSize, &m_place.head};
  const auto isLong = [](const uint64_t* value) { return *value == kInLongField; };
  if (std::none_of(std::begin(values), std::end(values), isLong)) return;
  uint8_t head[4];
  for (const uint64_t end = position + size; position + sizeof(head) <= end;) {
    if (m_reader.Read(position, head) != sizeof(head)) return;
    position += sizeof(head);
    const uint64_t fieldEnd = std::min<uint64_t>(end, position + ReadU16(head + 2));
    if (ReadU16(head) == kLongFieldId) {
      for (uint64_t* value : values) {
        uint8_t bytes[8];
        if (!isLong(value)) continue;
        if (position + sizeof(bytes) > fieldEnd || m_reader.Read(position, bytes) != sizeof(bytes)) return;
        *value = ReadU64(bytes);
        position += sizeof(bytes);
      }
      return;
    }
    position = fieldEnd;
  }
}
