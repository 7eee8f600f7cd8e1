#include "Common/zip/ZipExtraction.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <new>
#include <system_error>
#include <unordered_set>

#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"

namespace {

constexpr char kTag[] = "ExtractZip";
constexpr uLong kUnixFolderBit = 0x40000000;  // the upper half of the attributes is a Unix file mode
constexpr size_t kLongestPath = CFileUtil::kPathSize - 1;

constexpr size_t kMostCounted = 0xFFFF;  // members in an archive whose directory ends in the short form

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

}  // namespace

CZipExtraction::CZipExtraction(std::string zipFile, std::string destFolder, bool skipUnchanged, CZip::FolderTrust trust)
    : m_zipFile(std::move(zipFile)),
      m_destination(WithSlashes(std::move(destFolder))),
      m_skipUnchanged(skipUnchanged),
      m_trust(trust) {}

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
  FindChanges();
  if (!MakeRoom()) return;
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

CZip::KeptFiles CZipExtraction::Kept() const {
  CZip::KeptFiles kept;
  // Where members share targets, one may have been written over another that was found unchanged.
  if (m_inTurn || m_failure.failure()) return kept;
  kept.reserve(m_members.size() - m_writes.size());
  for (size_t i = 0; i < m_mustWrite.size(); ++i) {
    if (!m_mustWrite[i] && !m_members[i].isFolder) kept.emplace(NameOf(m_members[i]), m_members[i].place.size);
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
  struct stat before {};
  m_isFresh = lstat(m_destination.c_str(), &before) != 0;
  const bool isOwn = m_trust == CZip::kOwnFolder;
  const bool isOpen = !m_destination.empty() && CFileUtil::CreateFolder((m_destination + "/").c_str(), true) &&
                      m_tree.Open(m_destination.c_str(), !isOwn);
  // Only now, on the open folder: what was looked at before could have been replaced since.
  const char* fault = isOwn ? m_tree.Fault(m_destination.c_str()) : nullptr;
  if (fault) return Fail(0, CZip::kUntrustedFolder, "Folder " + m_destination + " is not safe to use: " + fault);
  return isOpen || Fail(0, CZip::kNoFolder, "Cannot create folder " + m_destination);
}

bool CZipExtraction::ListMembers() {
  const bool isOpen = m_file.Open(m_zipFile.c_str());
  CZipReader reader(m_file);
  const unzFile zip = reader.handle();
  if (!isOpen || !zip) return Fail(0, CZip::kCannotOpen, "Cannot open file zip " + m_zipFile);
  int status = unzGoToFirstFile(zip);
  if (status != UNZ_OK) {
    return FailWith(0, CZip::kNoFirstMember, status, "Go to first file failed in zip " + m_zipFile);
  }
  while (status == UNZ_OK && AddMember(zip)) status = unzGoToNextFile(zip);
  // minizip takes the greatest count that the short form can state for none, and looks for more.
  if (status == UNZ_BADZIPFILE && m_members.size() == kMostCounted) status = UNZ_END_OF_LIST_OF_FILE;
  if (status != UNZ_OK && status != UNZ_END_OF_LIST_OF_FILE) {
    FailWith(m_members.size(), CZip::kBadMemberInfo, status, "Get file info failed in zip file " + m_zipFile);
  }
  // What stands before a member that cannot be had is still unpacked.
  return true;
}

bool CZipExtraction::AddMember(unzFile zip) {
  const size_t index = m_members.size();
  unz_file_info64 info;
  char name[CFileUtil::kPathSize + 1] = {};
  int status = unzGetCurrentFileInfo64(zip, &info, name, CFileUtil::kPathSize, nullptr, 0, nullptr, 0);
  unz64_file_pos position{};
  if (status == UNZ_OK) status = unzGetFilePos64(zip, &position);
  if (status != UNZ_OK) {
    return FailWith(index, CZip::kBadMemberInfo, status, "Get file info failed in zip file " + m_zipFile);
  }
  if (!CZipMember::IsKnownMethod(info.compression_method)) {
    return FailWith(index, CZip::kCannotOpenMember, UNZ_BADZIPFILE,
                    "Open current file failed in zip file " + m_zipFile);
  }
  const size_t room = kLongestPath - std::min(kLongestPath, m_destination.size() + 1);
  const std::string_view kept = std::string_view(name).substr(0, room);
  m_members.push_back({{position, info.compressed_size, info.uncompressed_size, info.compression_method == 0},
                       info.tmu_date,
                       m_names.size(),
                       static_cast<uint32_t>(kept.size()),
                       (info.external_fa & kUnixFolderBit) != 0});
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

void CZipExtraction::FindChanges() {
  m_mustWrite.assign(m_members.size(), 1);
  if (m_skipUnchanged && !m_isFresh) {
    constexpr size_t kShare = 512;
    const size_t shares = (m_members.size() + kShare - 1) / kShare;
    CWorkers::Share(shares,
                    [&](size_t share) { LookAt(share * kShare, std::min(m_members.size(), (share + 1) * kShare)); });
  }
  for (size_t i = 0; i < m_members.size(); ++i) {
    if (m_mustWrite[i] && !m_members[i].isFolder) m_writes.push_back(i);
  }
  // Also when nothing seems to be written: the one file is no sign that each of its members can be opened.
  m_inTurn = MayShareTargets();
}

void CZipExtraction::LookAt(size_t begin, size_t end) {
  CFolderCursor cursor(m_tree);
  for (size_t i = begin; i < end; ++i) {
    const Member& member = m_members[i];
    m_mustWrite[i] =
        !member.isFolder && CZipUnpacker::MustWrite(cursor, NameOf(member), member.place.size, member.date);
  }
}

bool CZipExtraction::MayShareTargets() const {
  // Names that only seem equal, by their hashes or for being written in a roundabout way, cost nothing but the second
  // core.
  std::vector<size_t> targets;
  targets.reserve(m_members.size());
  for (const Member& member : m_members) {
    if (member.isFolder) continue;
    if (IsRoundabout(NameOf(member))) return true;
    targets.push_back(std::hash<std::string_view>{}(NameOf(member)));
  }
  std::sort(targets.begin(), targets.end());
  return std::adjacent_find(targets.begin(), targets.end()) != targets.end();
}

bool CZipExtraction::MakeRoom() {
  uint64_t needed = 0;
  for (const size_t i : m_writes) {
    const uint64_t size = m_members[i].place.size;
    needed = needed + size < needed ? UINT64_MAX : needed + size;
  }
  const uint64_t free = needed > 0 ? m_tree.FreeBytes() : 0;
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
    if (!member.isFolder && !m_mustWrite[i]) continue;
    const std::string_view folder = CFolderTree::FolderPart(NameOf(member));
    if ((!member.isFolder && folder == latest) || folder.empty()) continue;
    latest = folder;
    if (!made.insert(folder).second && !member.isFolder) continue;
    if (!m_tree.Create(folder) && member.isFolder) m_notes.emplace_back(i, "Cannot create folder " + TargetOf(member));
  }
  if (m_isFresh || m_writes.empty()) return;
  made.insert("");
  for (const std::string_view folder : made) CPartialFile::RemoveForgotten(m_tree.OpenFolder(folder).get());
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
  const bool lookAgain = m_skipUnchanged && (m_inTurn || !m_isFresh);
  if (m_inTurn) {
    // One that was found unchanged may be changed by the time its turn comes.
    m_writes.clear();
    for (size_t i = 0; i < m_members.size(); ++i) {
      if (!m_members[i].isFolder) m_writes.push_back(i);
    }
  }
  const std::vector<Batch> batches = Batches();
  if (batches.empty()) return;
  const unsigned workers = m_inTurn ? 1 : CWorkers::CountFor(batches.size());
  std::atomic<size_t> next = 0;
  CWorkers::Run(workers, [&](unsigned) {
    CZipUnpacker unpacker(m_file, m_tree, lookAgain);
    for (size_t batch = 0; (batch = next++) < batches.size();) {
      for (const size_t i : batches[batch]) {
        if (m_failure.IsMoot(i)) return;
        const Member& member = m_members[i];
        if (auto fault = unpacker.Write(NameOf(member), member.place, member.date)) Report(i, *fault);
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
    default:
      Fail(i, fault.result,
           "Cannot write file " + TargetOf(m_members[i]) + ": " + std::generic_category().message(fault.error));
  }
}
