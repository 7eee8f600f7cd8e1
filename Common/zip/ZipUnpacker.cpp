#include "Common/zip/ZipUnpacker.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

namespace {

// A read that fails takes the whole block with it, so that a damaged member's file ends at a multiple of this.
constexpr uint64_t kBlockSize = 5242880;

// Small enough to be still in the processor's cache when it is written.
constexpr size_t kWriteSize = 256 * 1024;

// What Copy returns, with errno, beside what CZipMember::Read does.
constexpr int64_t kNotWritten = -100;

struct Path {
  std::string_view folder;
  std::string_view leaf;
};

Path Split(std::string_view name) {
  const size_t leaf = name.rfind('/') + 1;
  return {name.substr(0, leaf), name.substr(leaf)};
}

// Archives know no date before 1980, so that the conversion, which may look at the time zone's file, is rarely needed.
bool IsEpoch(const tm_unz& date) {
  const auto year = date.tm_year > 1900 ? date.tm_year - 1900 : date.tm_year;
  return year <= 71 && CZip::MakeTime(date) == 0;
}

}  // namespace

CZipUnpacker::CZipUnpacker(const CZipFile& file, const CFolderTree& tree, CSharedFolder* shared, bool skipUnchanged,
                           CZipMember::Inflation inflation)
    : m_reader(file),
      m_member(m_reader),
      m_cursor(tree),
      m_shared(shared),
      m_transfer(kWriteSize),
      m_skipUnchanged(skipUnchanged),
      m_inflation(inflation) {}

ZipTarget CZipUnpacker::Look(CFolderCursor& cursor, std::string_view name, uint64_t size, const tm_unz& date) {
  const auto [folder, leaf] = Split(name);
  char text[CFolderTree::kNameSize];
  struct stat status {};
  const int at = cursor.At(folder);
  if (at < 0 || !CFolderTree::ToName(leaf, text) || fstatat(at, text, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return ZipTarget::kMissing;
  }
  const bool isIt = S_ISREG(status.st_mode) && static_cast<uint64_t>(status.st_size) == size && !IsEpoch(date);
  return isIt ? ZipTarget::kUnchanged : ZipTarget::kChanged;
}

ZipTarget CZipUnpacker::LookAgain(std::string_view name, const ZipMemberPlace& place, const tm_unz& date) {
  const ZipTarget target = Look(m_cursor, name, place.size, date);
  return target == ZipTarget::kUnchanged && !m_skipUnchanged ? ZipTarget::kChanged : target;
}

std::optional<CZipUnpacker::Fault> CZipUnpacker::Check(const ZipMemberPlace& place) {
  const int status = m_member.Open(place, m_inflation);
  if (status == UNZ_OK) return std::nullopt;
  return Fault{CZip::kCannotOpenMember, status};
}

std::optional<CZipUnpacker::Fault> CZipUnpacker::AskToReplace() {
  std::string reason = m_shared ? m_shared->BeginReplacing() : "";
  if (reason.empty()) return std::nullopt;
  return Fault{CZip::kFolderInUse, 0, std::move(reason)};
}

std::optional<CZipUnpacker::Fault> CZipUnpacker::Write(std::string_view name, const ZipMemberPlace& place,
                                                       const tm_unz& date) {
  if (auto fault = Check(place)) return fault;
  ZipTarget target = LookAgain(name, place, date);
  if (target == ZipTarget::kUnchanged) return std::nullopt;
  if (target == ZipTarget::kChanged) {
    if (auto fault = AskToReplace()) return fault;
  }
  const auto [folder, leaf] = Split(name);
  char leafText[CFolderTree::kNameSize];
  const int at = m_cursor.At(folder);
  if (at < 0 || leaf.empty() || !CFolderTree::ToName(leaf, leafText)) return Fault{CZip::kCannotOpen, ENOENT};
  CPartialFile file(at);
  if (file.fd() < 0) return Fault{CZip::kCannotOpen, errno};
  if (auto fault = Fill(file.fd(), place, date)) return fault;
  if (!file.Close()) return Fault{CZip::kWriteFailed, errno};
  if (target == ZipTarget::kMissing) {
    if (file.CommitNew(leafText)) return std::nullopt;
    if (errno != EEXIST) return Fault{CZip::kCannotOpen, errno};
    // Somebody else was faster.
    target = LookAgain(name, place, date);
    if (target == ZipTarget::kUnchanged) return std::nullopt;
    if (auto fault = AskToReplace()) return fault;
  }
  if (!file.Commit(leafText)) return Fault{CZip::kCannotOpen, errno};
  return std::nullopt;
}

std::optional<CZipUnpacker::Fault> CZipUnpacker::Fill(int fd, const ZipMemberPlace& place, const tm_unz& date) {
  int64_t end = Copy(fd);
  if (m_inflation != CZipMember::Inflation::kZlib && (end == CZipMember::kInDoubt || end == kNotWritten)) {
    if (lseek(fd, 0, SEEK_SET) != 0 || ftruncate(fd, 0) != 0) return Fault{CZip::kWriteFailed, errno};
    const int status = m_member.Open(place, CZipMember::Inflation::kZlib);
    if (status != UNZ_OK) return Fault{CZip::kCannotOpenMember, status};
    end = Copy(fd);
  }
  if (end == kNotWritten) return Fault{CZip::kWriteFailed, errno};
  if (end == CZipMember::kUnreadable && ftruncate(fd, static_cast<off_t>(m_written / kBlockSize * kBlockSize)) != 0) {
    return Fault{CZip::kWriteFailed, errno};
  }
  const time_t time = TimeOf(date);
  const timespec times[2] = {{time, 0}, {time, 0}};
  futimens(fd, times);
  return std::nullopt;
}

int64_t CZipUnpacker::Copy(int fd) {
  m_written = 0;
  int64_t got = 0;
  while ((got = m_member.Read(m_transfer)) > 0) {
    const std::string_view bytes(reinterpret_cast<const char*>(m_transfer.data()), static_cast<size_t>(got));
    if (m_quiet.Write(fd, bytes) != bytes.size()) return kNotWritten;
    m_written += bytes.size();
  }
  return got;
}

time_t CZipUnpacker::TimeOf(const tm_unz& date) {
  if (!m_latestDate || memcmp(&*m_latestDate, &date, sizeof(date)) != 0) {
    m_latestDate = date;
    m_latestTime = CZip::MakeTime(date);
  }
  return m_latestTime;
}
