#include "Common/Zip.h"

#include <sys/stat.h>
#include <utime.h>
#include <zlib.h>

#include <memory>
#include <mutex>
#include <new>
#include <span>

#include "Common/Logger_mac.h"
#include "Common/SharedFolder.h"
#include "Common/zip/ZipArchive.h"
#include "Common/zip/ZipDirectory.h"
#include "Common/zip/ZipExtraction.h"

namespace {

constexpr size_t kTransferSize = 5242880;
constexpr size_t kNameLimit = 256;  // of a member that is looked for, with its NUL

// Writes what went wrong where there is a logger, and hands on the result.
int32_t Fail(CLogger* logger, CZip::Result result, int status, const std::string& message) {
  if (logger) logger->LogErrorText("ReadInternalFile", status, message.c_str());
  return result;
}

// Turns to the first entry of that name; minizip's status, UNZ_OK when it is there.
int Locate(CZipDirectory& directory, const std::string& member) {
  if (member.size() >= kNameLimit) return UNZ_PARAMERROR;
  int status = directory.First();
  while (status == UNZ_OK && directory.name() != member) status = directory.Next();
  return status;
}

// Appends the open member; a read that fails empties `content`. False when all of it was read and its sum is another.
bool AppendMember(CZipMember& member, uint32_t checksum, std::span<uint8_t> buffer, std::string& content) {
  uLong sum = crc32(0, nullptr, 0);
  int64_t got = 0;
  while ((got = member.Read(buffer)) > 0) {
    sum = crc32(sum, buffer.data(), static_cast<uInt>(got));
    content.append(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(got));
  }
  if (got < 0) content.clear();
  return got < 0 || member.left() > 0 || sum == checksum;
}

}  // namespace

int32_t CZip::ExtractZip(const char* zipFile, const char* destFolder, bool skipUnchanged, CLogger* logger) {
  CZipExtraction extraction(zipFile ? zipFile : "", destFolder ? destFolder : "", skipUnchanged);
  const int32_t result = extraction.Run();
  if (logger) extraction.Log(*logger);
  return result;
}

int32_t CZip::ExtractZip(const char* zipFile, int descriptor, CSharedFolder& destination, CLogger* logger,
                         KeptFiles* kept) {
  CZipExtraction extraction(zipFile ? zipFile : "", descriptor, destination);
  const int32_t result = extraction.Run();
  destination.EndReplacing();
  if (logger) extraction.Log(*logger);
  if (kept) *kept = extraction.TakeKept();
  return result;
}

std::optional<uint64_t> CZip::KeptFiles::SizeOf(std::string_view name) const {
  const auto found = m_sizes.find(name);
  return found == m_sizes.end() ? std::nullopt : std::optional(found->second);
}

int32_t CZip::ReadInternalFile(const char* zipFile, const char* memberName, std::string& content, CLogger* logger) {
  const std::string path = zipFile ? zipFile : "";
  const std::string member = memberName ? memberName : "";
  CZipFile file;
  const bool isFile = file.Open(path.c_str());
  CZipDirectory directory(file);
  if (!isFile || !directory.IsOpen()) {
    if (logger) logger->LogEventText("ReadInternalFile", ("Cannot open file zip " + path).c_str());
    return kCannotOpen;
  }

  int status = Locate(directory, member);
  if (status != UNZ_OK) return Fail(logger, kNotFound, status, "Not found " + member + " in zip " + path);
  const std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kTransferSize]);
  if (!buffer) return Fail(logger, kNoMemory, 0, "Out of memery");
  CZipReader reader(file);
  CZipMember contents(reader);
  const bool isKnown = CZipMember::IsKnownMethod(directory.place().method);
  status = isKnown ? contents.Open(directory.place(), CZipMember::Inflation::kZlib) : UNZ_BADZIPFILE;
  if (status != UNZ_OK) return Fail(logger, kCannotOpenMember, status, "Open current file failed in zip file " + path);

  if (AppendMember(contents, directory.place().checksum, {buffer.get(), kTransferSize}, content)) return 0;
  content.clear();
  return kCheckFailed;
}

bool CZip::DetectChange(const char* file, const unz_file_info& info) {
  struct stat status {};
  return stat(file, &status) != 0 || static_cast<uint64_t>(status.st_size) != info.uncompressed_size ||
         MakeTime(info.tmu_date) == 0;
}

int CZip::UpdateTime(const char* file, const tm_unz& date) {
  const time_t seconds = MakeTime(date);
  const utimbuf times{seconds, seconds};
  return utime(file, &times);
}

time_t CZip::MakeTime(const tm_unz& date) {
  tm local{};
  local.tm_sec = static_cast<int>(date.tm_sec);
  local.tm_min = static_cast<int>(date.tm_min);
  local.tm_hour = static_cast<int>(date.tm_hour);
  local.tm_mday = static_cast<int>(date.tm_mday);
  local.tm_mon = static_cast<int>(date.tm_mon);
  local.tm_year = static_cast<int>(date.tm_year > 1900 ? date.tm_year - 1900 : date.tm_year);
  local.tm_isdst = -1;
  // Unless TZ is set, every conversion reads the time zone anew into the C library's one place for it.
  static std::mutex zone;
  std::lock_guard lock(zone);
  return mktime(&local);
}
