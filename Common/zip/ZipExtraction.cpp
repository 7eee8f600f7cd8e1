#include "Common/zip/ZipExtraction.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <new>
#include <system_error>
#include <unordered_map>
#include <unordered_set>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"

namespace {

constexpr char kTag[] = "ExtractZip";
constexpr uint32_t kUnixFolderBit = 0x40000000;  // the upper half of the attributes is a Unix file mode
constexpr size_t kLongestPath = CFileUtil::kPathSize - 1;

// A worker takes members in batches: neighbours in the archive and in one folder, up to these bounds.
constexpr size_t kBatchMembers = 128;
constexpr uint64_t kBatchBytes = 2 * 1024 * 1024;

std::string WithSlashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path.substr(0, kLongestPath);
}

// Whether a member's name leads out of the folder that it is put in, on any system's reading of it.
bool LeadsOut(std::string_view name) {
  const auto isSeparator = [](char c) { return c == '/' || c == '\\'; };
  if (name.empty()) return false;
  if (isSeparator(name[0]) || (name.size() > 1 && name[1] == ':')) return true;
  for (size_t start = 0, end = 0; start < name.size(); start = end + 1) {
    end = start;
    while (end < name.size() && !isSeparator(name[end])) ++end;
    if (name.substr(start, end - start) == "..") return true;
  }
  return false;
}

// Whether another name could stand for the same file.
bool IsRoundabout(std::string_view name) {
  return name.starts_with("./") || name.find("//") != name.npos || name.find("/./") != name.npos;
}

// The one name of a file that may be written in roundabout ways.
std::string Straightened(std::string_view name) {
  std::string straight;
  for (size_t start = 0, end = 0; start <= name.size(); start = end + 1) {
    end = std::min(name.find('/', start), name.size());
    const std::string_view part = name.substr(start, end - start);
    if (part.empty() || part == ".") continue;
    if (!straight.empty()) straight += '/';
    straight += part;
  }
  return straight;
}

}  // namespace

CZipExtraction::CZipExtraction(std::string zipFile, std::string destFolder, bool skipUnchanged,
                               CZipMember::Inflation inflation)
    : m_zipFile(std::move(zipFile)),
      m_destination(WithSlashes(std::move(destFolder))),
      m_skipUnchanged(skipUnchanged),
      m_inflation(inflation) {}

CZipExtraction::CZipExtraction(std::string zipFile, int descriptor, CSharedFolder& destination)
    : m_zipFile(std::move(zipFile)),
      m_destination(destination.path()),
      m_skipUnchanged(true),
      m_shared(&destination),
      m_tree(&destination.tree()) {
  m_file.Use(descriptor);
}

int32_t CZipExtraction::Run() {
  try {
    Extract();
  } catch (const std::bad_alloc&) {
    Fail(0, CZip::kNoMemory, "Error when alloc memory");
  }
  return m_failure.failure() ? m_failure.failure()->result : 0;
}

void CZipExtraction::Extract() {
  if (!OpenDestination() || !ListMembers() || !RefuseStrayNames()) return;
  LeaveOutTheLock();
  FindShadowed();
  FindChanges();
  CheckHeads();
  if (!AskToReplace() || !MakeRoom()) return;
  MakeFolders();
  WriteMembers();
}

void CZipExtraction::Log(CLogger& logger) const {
  for (const auto& [member, message] : m_notes) {
    if (!m_failure.IsMoot(member)) logger.LogEventText(kTag, message.c_str());
  }
  const auto& failure = m_failure.failure();
  if (!failure) return;
  if (failure->hasStatus) {
    logger.LogErrorText(kTag, failure->status, failure->message.c_str());
  } else {
    logger.LogEventText(kTag, failure->message.c_str());
  }
}

CZip::KeptFiles CZipExtraction::TakeKept() {
  CZip::KeptFiles kept;
  if (m_failure.failure()) return kept;
  kept.m_names = std::make_unique<const std::string>(std::move(m_names));
  kept.m_sizes.reserve(m_members.size() - m_writes.size());
  const std::string_view names = *kept.m_names;
  for (const Member& member : m_members) {
    if (member.state != State::kUnchanged) continue;
    kept.m_sizes.emplace(names.substr(member.nameStart, member.nameSize), member.place.size);
  }
  return kept;
}

bool CZipExtraction::Fail(size_t member, int32_t result, std::string message) {
  m_failure.Report(member, {result, false, 0, std::move(message)});
  return false;
}

bool CZipExtraction::FailWith(size_t member, int32_t result, int status, std::string message) {
  m_failure.Report(member, {result, true, status, std::move(message)});
  return false;
}

bool CZipExtraction::OpenDestination() {
  if (m_shared) return true;
  const bool isOpen = !m_destination.empty() && CFileUtil::CreateFolder((m_destination + "/").c_str(), true) &&
                      m_ownTree.Open(m_destination.c_str(), true);
  return isOpen || Fail(0, CZip::kNoFolder, "Cannot create folder " + m_destination);
}

bool CZipExtraction::ListMembers() {
  const bool isFile = m_shared ? m_file.IsOpen() : m_file.Open(m_zipFile.c_str());
  CZipDirectory directory(m_file);
  if (!isFile || !directory.IsOpen()) return Fail(0, CZip::kCannotOpen, "Cannot open file zip " + m_zipFile);
  int status = directory.First();
  if (status == UNZ_BADZIPFILE) {
    return FailWith(0, CZip::kNoFirstMember, status, "Go to first file failed in zip " + m_zipFile);
  }
  while (status == UNZ_OK && AddMember(directory)) status = directory.Next();
  if (status != UNZ_OK && status != UNZ_END_OF_LIST_OF_FILE) {
    FailWith(m_members.size(), CZip::kBadMemberInfo, status, "Get file info failed in zip file " + m_zipFile);
  }
  // What stands before a member that cannot be had is still unpacked.
  return true;
}

bool CZipExtraction::AddMember(const CZipDirectory& directory) {
  if (!CZipMember::IsKnownMethod(directory.place().method)) {
    return FailWith(m_members.size(), CZip::kCannotOpenMember, UNZ_BADZIPFILE,
                    "Open current file failed in zip file " + m_zipFile);
  }
  const size_t room = kLongestPath - std::min(kLongestPath, m_destination.size() + 1);
  const std::string_view kept = directory.name().substr(0, room);
  m_members.push_back({directory.place(), directory.date(), m_names.size(), static_cast<uint32_t>(kept.size()),
                       (directory.attributes() & kUnixFolderBit) != 0 ? State::kFolder : State::kMissing});
  m_names += kept;
  return true;
}

bool CZipExtraction::RefuseStrayNames() {
  for (size_t i = 0; i < m_members.size(); ++i) {
    const std::string_view name = NameOf(m_members[i]);
    if (!LeadsOut(name)) continue;
    return Fail(i, CZip::kMemberLeavesFolder,
                "Member " + std::string(name) + " of zip " + m_zipFile + " leads out of its folder");
  }
  return true;
}

// A folder that others rely on has its locks in a file of its own.
void CZipExtraction::LeaveOutTheLock() {
  if (!m_shared) return;
  for (size_t i = 0; i < m_members.size(); ++i) {
    if (Straightened(NameOf(m_members[i])) != CSharedFolder::kLockName) continue;
    m_members[i].state = State::kLeftOut;
    m_notes.emplace_back(i, "Member " + std::string(NameOf(m_members[i])) + " of zip " + m_zipFile +
                                " has a reserved name and is left out");
  }
}

bool CZipExtraction::MayShareTargets() const {
  // Names that only seem equal, by their hashes or for being written in a roundabout way, cost nothing but a closer
  // look.
  std::vector<size_t> targets;
  targets.reserve(m_members.size());
  for (const Member& member : m_members) {
    if (member.state != State::kMissing) continue;
    if (IsRoundabout(NameOf(member))) return true;
    targets.push_back(std::hash<std::string_view>{}(NameOf(member)));
  }
  std::sort(targets.begin(), targets.end());
  return std::adjacent_find(targets.begin(), targets.end()) != targets.end();
}

void CZipExtraction::FindShadowed() {
  if (!MayShareTargets()) return;
  std::unordered_map<std::string, std::vector<size_t>> membersOf;
  for (size_t i = 0; i < m_members.size(); ++i) {
    if (m_members[i].state == State::kMissing) membersOf[Straightened(NameOf(m_members[i]))].push_back(i);
  }
  for (const auto& [target, sharers] : membersOf) Shadow(sharers);
}

// What counts is what would stand there if all were unpacked in turn: a member whose size the file has already is
// skipped, so of equally long ones at the end the first stays.
void CZipExtraction::Shadow(std::span<const size_t> sharers) {
  size_t counts = sharers.size() - 1;
  const auto sizeOf = [&](size_t sharer) { return m_members[sharers[sharer]].place.size; };
  while (m_skipUnchanged && counts > 0 && sizeOf(counts - 1) == sizeOf(counts)) --counts;
  for (size_t i = 0; i < sharers.size(); ++i) {
    if (i != counts) m_members[sharers[i]].state = State::kShadowed;
  }
}

void CZipExtraction::FindChanges() {
  constexpr size_t kShare = 512;
  const size_t shares = (m_members.size() + kShare - 1) / kShare;
  CWorkers::Share(shares,
                  [&](size_t share) { LookAt(share * kShare, std::min(m_members.size(), (share + 1) * kShare)); });
  for (size_t i = 0; i < m_members.size(); ++i) {
    if (IsToBeOpened(m_members[i].state)) m_writes.push_back(i);
  }
}

void CZipExtraction::LookAt(size_t begin, size_t end) {
  CFolderCursor cursor(*m_tree);
  for (size_t i = begin; i < end; ++i) {
    Member& member = m_members[i];
    if (member.state != State::kMissing) continue;
    const ZipTarget target = CZipUnpacker::Look(cursor, NameOf(member), member.place.size, member.date);
    if (target == ZipTarget::kUnchanged && m_skipUnchanged) member.state = State::kUnchanged;
    if (target == ZipTarget::kChanged) member.state = State::kChanged;
  }
}

// Before anything is written at all, where it is known by now.
bool CZipExtraction::AskToReplace() {
  const auto changed = std::find_if(m_members.begin(), m_members.end(),
                                    [](const Member& member) { return member.state == State::kChanged; });
  if (!m_shared || changed == m_members.end()) return true;
  const std::string reason = m_shared->BeginReplacing();
  return reason.empty() || Fail(static_cast<size_t>(changed - m_members.begin()), CZip::kFolderInUse,
                                "Cannot replace file " + TargetOf(*changed) + ". " + reason);
}

// A member that could not be opened is a failure also where nothing of it is to be written.
void CZipExtraction::CheckHeads() {
  constexpr size_t kShare = 512;
  CWorkers::Share((m_members.size() + kShare - 1) / kShare, [&](size_t share) {
    for (size_t i = share * kShare; i < std::min(m_members.size(), (share + 1) * kShare); ++i) {
      const Member& member = m_members[i];
      if (!IsToBeOpened(member.state) && !CZipMember::HasSoundHead(m_file, member.place)) {
        Report(i, {CZip::kCannotOpenMember, UNZ_BADZIPFILE});
      }
    }
  });
}

bool CZipExtraction::MakeRoom() {
  uint64_t needed = 0;
  for (const size_t i : m_writes) {
    const uint64_t size = m_members[i].state == State::kShadowed ? 0 : m_members[i].place.size;
    needed = needed + size < needed ? UINT64_MAX : needed + size;
  }
  const uint64_t free = needed > 0 ? m_tree->FreeBytes() : 0;
  if (needed <= free) return true;
  return Fail(0, CZip::kNoRoom,
              "No room to unpack " + m_zipFile + " in " + m_destination + ": " + std::to_string(needed) +
                  " bytes are needed, " + std::to_string(free) + " are free");
}

void CZipExtraction::MakeFolders() {
  std::unordered_set<std::string_view> made;
  std::string_view latest;
  for (size_t i = 0; i < m_members.size(); ++i) {
    const Member& member = m_members[i];
    const bool isFolder = member.state == State::kFolder;
    if (!isFolder && member.state != State::kMissing && member.state != State::kChanged) continue;
    const std::string_view folder = CFolderTree::FolderPart(NameOf(member));
    if ((!isFolder && folder == latest) || folder.empty()) continue;
    latest = folder;
    if (!made.insert(folder).second && !isFolder) continue;
    if (!m_tree->Create(folder) && isFolder) m_notes.emplace_back(i, "Cannot create folder " + TargetOf(member));
  }
  if (m_writes.empty()) return;
  made.insert("");
  RemoveForgotten(made);
}

void CZipExtraction::RemoveForgotten(const std::unordered_set<std::string_view>& folders) const {
  std::unordered_set<std::string_view> members;
  for (const Member& member : m_members) {
    const std::string_view name = NameOf(member);
    const std::string_view leaf = name.substr(name.rfind('/') + 1);
    if (CPartialFile::IsNameOfOne(leaf)) members.insert(leaf);
  }
  for (const std::string_view folder : folders) {
    CPartialFile::RemoveForgotten(m_tree->OpenFolder(folder).get(), members);
  }
}

std::vector<CZipExtraction::Batch> CZipExtraction::Batches() const {
  std::vector<Batch> batches;
  const auto folderOf = [this](size_t i) {
    const std::string_view name = NameOf(m_members[i]);
    return name.substr(0, name.rfind('/') + 1);
  };
  for (size_t begin = 0, end = 0; begin < m_writes.size(); begin = end) {
    uint64_t bytes = 0;
    for (end = begin; end < m_writes.size() && end - begin < kBatchMembers && bytes < kBatchBytes; ++end) {
      if (folderOf(m_writes[end]) != folderOf(m_writes[begin])) break;
      bytes += std::min(m_members[m_writes[end]].place.size, kBatchBytes);
    }
    batches.emplace_back(m_writes.data() + begin, end - begin);
  }
  return batches;
}

void CZipExtraction::WriteMembers() {
  const std::vector<Batch> batches = Batches();
  if (batches.empty()) return;
  std::atomic<size_t> next = 0;
  CWorkers::Run(CWorkers::CountFor(batches.size()), [&](unsigned) {
    CZipUnpacker unpacker(m_file, *m_tree, m_shared, m_skipUnchanged, m_inflation);
    for (size_t batch = 0; (batch = next++) < batches.size();) {
      for (const size_t i : batches[batch]) {
        if (m_failure.IsMoot(i)) return;
        const Member& member = m_members[i];
        const bool isShadowed = member.state == State::kShadowed;
        const auto fault =
            isShadowed ? unpacker.Check(member.place) : unpacker.Write(NameOf(member), member.place, member.date);
        if (fault) Report(i, *fault);
      }
    }
  });
}

void CZipExtraction::Report(size_t i, const CZipUnpacker::Fault& fault) {
  switch (fault.result) {
    case CZip::kCannotOpenMember:
      FailWith(i, fault.result, fault.error, "Open current file failed in zip file " + m_zipFile);
      break;
    case CZip::kCannotOpen:
      Fail(i, fault.result, "Cannot open file " + TargetOf(m_members[i]));
      break;
    case CZip::kFolderInUse:
      Fail(i, fault.result, "Cannot replace file " + TargetOf(m_members[i]) + ". " + fault.reason);
      break;
    default:
      Fail(i, fault.result,
           "Cannot write file " + TargetOf(m_members[i]) + ": " + std::generic_category().message(fault.error));
  }
}
