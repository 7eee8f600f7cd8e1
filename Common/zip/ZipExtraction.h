// One run of CZip::ExtractZip, in steps: list the members, find those to be written, look at the headers of the others,
// make sure of room, make the folders, write. Listing and making folders go in the archive's order on one thread;
// looking and writing is shared out to one thread per core. Made for one call and used by the thread that makes it.
#ifndef QUARVEL_COMMON_ZIP_ZIPEXTRACTION_H
#define QUARVEL_COMMON_ZIP_ZIPEXTRACTION_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Common/FolderTree.h"
#include "Common/Workers.h"
#include "Common/Zip.h"
#include "Common/zip/ZipArchive.h"
#include "Common/zip/ZipDirectory.h"
#include "Common/zip/ZipUnpacker.h"

class CLogger;

class CZipExtraction {
 public:
  // Into a folder of nobody's. What is unpacked does not depend on `inflation`.
  CZipExtraction(std::string zipFile, std::string destFolder, bool skipUnchanged,
                 CZipMember::Inflation inflation = CZipMember::Inflation::kFastest);
  // From an open archive into a folder that others rely on; both must outlive it.
  CZipExtraction(std::string zipFile, int descriptor, CSharedFolder& destination);

  // Does it all; returns 0 or a CZip::Result.
  int32_t Run();

  // Writes what Run had to say.
  void Log(CLogger& logger) const;

  // The files that Run left as they are; for once, after everything else.
  CZip::KeptFiles TakeKept();

 private:
  // What a member is to the extraction: a folder; a file that stands there unchanged, is missing or stands there
  // changed; a file in whose place another member is unpacked; one that is left out.
  enum class State : uint8_t { kFolder, kUnchanged, kMissing, kChanged, kShadowed, kLeftOut };
  static bool IsToBeOpened(State state) {
    return state == State::kMissing || state == State::kChanged || state == State::kShadowed;
  }
  struct Member {
    ZipMemberPlace place;
    tm_unz date;
    size_t nameStart;  // in m_names
    uint32_t nameSize;
    State state;
  };
  using Batch = std::span<const size_t>;  // of m_writes
  struct Failure {
    int32_t result;
    bool hasStatus;  // written through the error call, with minizip's status
    int status;
    std::string message;
  };

  void Extract();

  // Steps of Extract; each is false when it failed and nothing further is to be done.
  bool OpenDestination();
  bool ListMembers();
  bool RefuseStrayNames();
  bool AskToReplace();
  bool MakeRoom();

  bool AddMember(const CZipDirectory& directory);
  void LeaveOutTheLock();
  void FindShadowed();
  bool MayShareTargets() const;
  void Shadow(std::span<const size_t> sharers);
  void FindChanges();
  void LookAt(size_t begin, size_t end);
  void CheckHeads();
  void MakeFolders();
  void RemoveForgotten(const std::unordered_set<std::string_view>& folders) const;
  void WriteMembers();
  std::vector<Batch> Batches() const;
  void Report(size_t member, const CZipUnpacker::Fault& fault);

  bool Fail(size_t member, int32_t result, std::string message);
  bool FailWith(size_t member, int32_t result, int status, std::string message);
  std::string_view NameOf(const Member& member) const { return {m_names.data() + member.nameStart, member.nameSize}; }
  std::string TargetOf(const Member& member) const { return m_destination + "/" + std::string(NameOf(member)); }

  const std::string m_zipFile;
  const std::string m_destination;
  const bool m_skipUnchanged;
  const CZipMember::Inflation m_inflation = CZipMember::Inflation::kFastest;
  CSharedFolder* const m_shared = nullptr;  // the destination, where others rely on it

  CFolderTree m_ownTree;  // the destination, where nobody else does
  const CFolderTree* m_tree = &m_ownTree;
  CZipFile m_file;
  std::vector<Member> m_members;
  std::string m_names;                                  // of all members, one after the other
  std::vector<size_t> m_writes;                         // members to be written or only opened, in the archive's order
  std::vector<std::pair<size_t, std::string>> m_notes;  // what went wrong without being a failure, by member
  CFirstFailure<Failure> m_failure;                     // by member
};

#endif
