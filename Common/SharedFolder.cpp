#include "Common/SharedFolder.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <optional>

#include "Common/Clock.h"
#include "Common/FileUtil.h"

namespace {

constexpr std::chrono::milliseconds kPause(50);
constexpr int kLongTries = 1200;  // a minute: a large archive is unpacked in less
constexpr int kShortTries = 10;   // long enough for one that looked in and withdraws
constexpr int kOpeningTries = 5;

constexpr size_t kMostSourcesText = 65536;  // bytes that the lock file names sources with

// What a party says by a shared lock on one byte: in each region, the byte of its source.
constexpr uint64_t kRegionSize = uint64_t{1} << 60;
enum Region : uint64_t {
  kRelies = 1 * kRegionSize,    // its files are those in the folder
  kReplaces = 2 * kRegionSize,  // it is replacing files
  kHolds = 3 * kRegionSize,     // it needs the folder as it is for a while
};

struct flock Range(short type, uint64_t start, uint64_t size) {
  struct flock range {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(start);
  range.l_len = static_cast<off_t>(size);
  return range;
}

bool Say(int fd, Region region, uint64_t source) {
  struct flock range = Range(F_RDLCK, region + source, 1);
  return fcntl(fd, F_OFD_SETLK, &range) == 0;
}

void Unsay(int fd, Region region, uint64_t source) {
  struct flock range = Range(F_UNLCK, region + source, 1);
  fcntl(fd, F_OFD_SETLK, &range);
}

// A source for which another party says so; sources before `from` and from `to` on are not asked for.
std::optional<uint64_t> Find(int fd, Region region, uint64_t from, uint64_t to) {
  if (from == to) return std::nullopt;
  struct flock range = Range(F_WRLCK, region + from, to - from);
  if (fcntl(fd, F_OFD_GETLK, &range) != 0) return from;  // what cannot be asked counts as said
  if (range.l_type == F_UNLCK) return std::nullopt;
  return static_cast<uint64_t>(range.l_start) - region;
}

std::optional<uint64_t> FindAny(int fd, Region region) {
  return Find(fd, region, 0, kRegionSize);
}

std::optional<uint64_t> FindOther(int fd, Region region, uint64_t source) {
  const auto before = Find(fd, region, 0, source);
  return before ? before : Find(fd, region, source + 1, kRegionSize);
}

template <class Try>
bool Await(int tries, const Try& succeeds) {
  for (int i = 0; i < tries; ++i) {
    if (i > 0) Clock::Current().Sleep(kPause);
    if (succeeds()) return true;
  }
  return false;
}

// One file, as it is now: a number below kRegionSize (FNV-1a).
uint64_t NumberOf(const struct stat& status) {
  const std::array<uint64_t, 7> identity = {
      static_cast<uint64_t>(status.st_dev),          static_cast<uint64_t>(status.st_ino),
      static_cast<uint64_t>(status.st_size),         static_cast<uint64_t>(status.st_mtim.tv_sec),
      static_cast<uint64_t>(status.st_mtim.tv_nsec), static_cast<uint64_t>(status.st_ctim.tv_sec),
      static_cast<uint64_t>(status.st_ctim.tv_nsec)};
  uint64_t number = 14695981039346656037U;
  for (uint64_t word : identity) {
    for (int byte = 0; byte < 8; ++byte, word >>= 8) number = (number ^ (word & 0xff)) * 1099511628211U;
  }
  return (number ^ (number >> 60)) % kRegionSize;
}

// How a line of the lock file begins that names this source.
std::string LineHead(uint64_t source) {
  std::array<char, 24> head{};
  snprintf(head.data(), head.size(), "%015llx ", static_cast<unsigned long long>(source));
  return head.data();
}

std::string PathOfLine(std::string_view text, size_t lineStart) {
  const size_t start = std::min(text.size(), lineStart + LineHead(0).size());
  return std::string(text.substr(start, text.find('\n', start) - start));
}

}  // namespace

CSharedFolder::Opening CSharedFolder::Open(const std::string& path, std::string* fault) {
  m_path = path;
  // A cleaner of temporary files may take the folder away between its opening and its locking.
  for (int i = 0; i < kOpeningTries; ++i) {
    Opening opening = Opening::kOpen;
    if (!OpenOnce(fault, &opening)) return opening;
    if (IsInPlace()) return Opening::kOpen;
  }
  *fault = "it is taken away again and again";
  return Opening::kUnsafe;
}

bool CSharedFolder::OpenOnce(std::string* fault, Opening* opening) {
  struct stat status {};
  *opening = Opening::kCannotCreate;
  if (!CFileUtil::CreateFolder((m_path + "/").c_str(), true) && lstat(m_path.c_str(), &status) != 0) return false;
  *opening = Opening::kUnsafe;
  m_tree.Open(m_path.c_str(), false);
  // Judged on the open folder: what was looked at before could have been replaced since.
  const char* const danger = m_tree.Fault(m_path.c_str());
  if (danger) *fault = danger;
  return !danger && TakeLocks(fault);
}

// The lock on the folder itself keeps cleaners of temporary files away, which take one before they remove anything.
bool CSharedFolder::TakeLocks(std::string* fault) {
  if (!Await(kLongTries, [this] { return flock(m_tree.fd(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK; })) {
    *fault = "another program keeps it locked";
    return false;
  }
  constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  m_lockFile = UniqueFd(openat(m_tree.fd(), kLockName, kFlags, S_IRUSR | S_IWUSR));
  struct stat status {};
  if (m_lockFile && fstat(m_lockFile.get(), &status) == 0 && S_ISREG(status.st_mode)) return true;
  *fault = "its lock file cannot be used";
  if (!m_lockFile) *fault += std::string(": ") + strerror(errno);
  return false;
}

bool CSharedFolder::IsInPlace() const {
  struct stat here {};
  struct stat there {};
  return fstat(m_tree.fd(), &here) == 0 && lstat(m_path.c_str(), &there) == 0 && here.st_dev == there.st_dev &&
         here.st_ino == there.st_ino;
}

std::string CSharedFolder::Join(const struct stat& source, const std::string& sourcePath) {
  m_source = NumberOf(source);
  if (!Await(kLongTries, [this] { return TryJoin(); })) {
    const auto other = FindOther(m_lockFile.get(), kReplaces, m_source);
    return InUse(other ? "its files are being replaced by those of " + NameOf(*other) : "it cannot be locked");
  }
  const std::string text = Sources();
  if (text.find(LineHead(m_source)) == std::string::npos && text.size() < kMostSourcesText) {
    std::string line = LineHead(m_source) + sourcePath;
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    // Without room on the disk others are not told the name, and that is all.
    if (write(m_lockFile.get(), (line + '\n').c_str(), line.size() + 1) < 0) return {};
  }
  return {};
}

// Says first and looks then, as one that replaces does: at least one of the two sees the other.
bool CSharedFolder::TryJoin() const {
  if (!Say(m_lockFile.get(), kRelies, m_source)) return false;
  if (!FindOther(m_lockFile.get(), kReplaces, m_source)) return true;
  Unsay(m_lockFile.get(), kRelies, m_source);
  return false;
}

std::string CSharedFolder::BeginReplacing() {
  const std::lock_guard lock(m_mutex);
  if (m_isReplacing) return {};
  std::string why = InUse("it cannot be locked");
  if (!Say(m_lockFile.get(), kReplaces, m_source)) return why;
  m_isReplacing = Await(kShortTries, [&] { return MayReplace(&why); });
  if (m_isReplacing) return {};
  Unsay(m_lockFile.get(), kReplaces, m_source);
  return why;
}

bool CSharedFolder::MayReplace(std::string* why) const {
  const int fd = m_lockFile.get();
  if (const auto other = FindOther(fd, kRelies, m_source)) {
    *why = InUse("its files come from " + NameOf(*other) + ", which is still loaded");
    return false;
  }
  if (const auto other = FindAny(fd, kHolds)) {
    *why = InUse("a file from " + NameOf(*other) + " is being transferred");
    return false;
  }
  return true;
}

void CSharedFolder::EndReplacing() {
  const std::lock_guard lock(m_mutex);
  if (m_isReplacing) Unsay(m_lockFile.get(), kReplaces, m_source);
  m_isReplacing = false;
}

CSharedFolder::Hold CSharedFolder::HoldStill() {
  {
    const std::lock_guard lock(m_mutex);
    if (m_holds == 0 && !Say(m_lockFile.get(), kHolds, m_source)) return Hold();
    ++m_holds;
  }
  Hold hold(this);
  if (!Await(kLongTries, [this] { return !FindAny(m_lockFile.get(), kReplaces); })) return Hold();
  return hold;
}

void CSharedFolder::Release() {
  const std::lock_guard lock(m_mutex);
  if (--m_holds == 0) Unsay(m_lockFile.get(), kHolds, m_source);
}

std::string CSharedFolder::Sources() const {
  std::string text(kMostSourcesText, '\0');
  const ssize_t size = pread(m_lockFile.get(), text.data(), text.size(), 0);
  text.resize(static_cast<size_t>(std::max<ssize_t>(size, 0)));
  return text;
}

std::string CSharedFolder::NameOf(uint64_t source) const {
  const std::string text = Sources();
  const size_t line = text.find(LineHead(source));
  return line == std::string::npos ? "another archive" : PathOfLine(text, line);
}

std::string CSharedFolder::EarlierSource() const {
  const std::string text = Sources();
  const std::string mine = LineHead(m_source);
  for (size_t line = 0, end = 0; (end = text.find('\n', line)) != std::string::npos; line = end + 1) {
    if (!std::string_view(text).substr(line).starts_with(mine)) return PathOfLine(text, line);
  }
  return {};
}
