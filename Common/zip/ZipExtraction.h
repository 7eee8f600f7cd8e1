// One run of CZip::ExtractZip, in steps: list the members, find those to be written, make sure of room, make the
// folders, write. Listing and making folders go in the archive's order on one thread; looking at files and writing them
// is shared out to one thread per core. Made for one call and used by the thread that makes it.
#ifndef QUARVEL_COMMON_ZIP_ZIPEXTRACTION_H
#define QUARVEL_COMMON_ZIP_ZIPEXTRACTION_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Common/FolderTree.h"
#include "Common/Workers.h"
#include "Common/Zip.h"
#include "Common/zip/ZipArchive.h"
#include "Common/zip/ZipUnpacker.h"

class CLogger;

class CZipExtraction {
 public:
  CZipExtraction(std::string zipFile, std::string destFolder, bool skipUnchanged, CZip::FolderTrust trust);

  // Does it all; returns 0 or a CZip::Result.
  int32_t Run();

  // Writes what Run had to say.
  void Log(CLogger& logger) const;

  // The files that Run left as they are.
  CZip::KeptFiles Kept() const;

 private:
  struct Member {
    ZipMemberPlace place;
    tm_unz date;
    size_t nameStart;  // in m_names
    uint32_t nameSize;
    bool isFolder;
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
  bool MakeRoom();

  bool AddMember(unzFile zip);
  void FindChanges();
  void LookAt(size_t begin, size_t end);
  bool MayShareTargets() const;
  void MakeFolders();
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
  const CZip::FolderTrust m_trust;

  CFolderTree m_tree;
  bool m_isFresh = false;  // the destination was not there before
  CZipFile m_file;
  std::vector<Member> m_members;
  std::string m_names;                                  // of all members, one after the other
  std::vector<uint8_t> m_mustWrite;                     // by member
  std::vector<size_t> m_writes;                         // the members to be written, in the archive's order
  bool m_inTurn = false;                                // members share targets, so that their order decides what stays
  std::vector<std::pair<size_t, std::string>> m_notes;  // what went wrong without being a failure, by member
  CFirstFailure<Failure> m_failure;                     // by member
};

#endif
