#include "host/BundleSummary.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unzip.h>

#include <array>
#include <memory>

#include "desk/Text.h"

namespace {

constexpr int kMaximumMembers = 10000;
constexpr uint64_t kLongestManifest = 1 << 20;

struct CloseArchive {
  void operator()(void* archive) const { unzClose(archive); }
};
using Archive = std::unique_ptr<void, CloseArchive>;

std::string ReadMember(const Archive& archive, const char* name) {
  unz_file_info64 info{};
  if (unzLocateFile(archive.get(), name, 1) != UNZ_OK ||
      unzGetCurrentFileInfo64(archive.get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK ||
      info.uncompressed_size > kLongestManifest || unzOpenCurrentFile(archive.get()) != UNZ_OK) {
    return "";
  }
  std::string text(static_cast<size_t>(info.uncompressed_size), '\0');
  int size = unzReadCurrentFile(archive.get(), text.data(), static_cast<unsigned>(text.size()));
  unzCloseCurrentFile(archive.get());
  text.resize(static_cast<size_t>(std::max(size, 0)));
  return text;
}

Json ReadMembers(const Archive& archive) {
  Json members = Json::array();
  int result = unzGoToFirstFile(archive.get());
  for (int i = 0; result == UNZ_OK && i < kMaximumMembers; ++i) {
    unz_file_info64 info{};
    std::array<char, 1024> name{};
    if (unzGetCurrentFileInfo64(archive.get(), &info, name.data(), name.size(), nullptr, 0, nullptr, 0) != UNZ_OK)
      break;
    members.push_back({{"name", TextOfField(name.data(), name.size())},
                       {"size", static_cast<uint64_t>(info.uncompressed_size)},
                       {"packed", static_cast<uint64_t>(info.compressed_size)},
                       {"crc", fmt::format("{:08x}", static_cast<uint32_t>(info.crc))}});
    result = unzGoToNextFile(archive.get());
  }
  return members;
}

}  // namespace

BundleSummary SummaryOf(const std::string& bundle) {
  BundleSummary summary;
  summary.about = {{"file", bundle}};
  struct stat status {};
  if (stat(bundle.c_str(), &status) != 0) {
    summary.about["problem"] = "the file is not there any more";
    return summary;
  }
  summary.about["size"] = status.st_size;
  summary.about["modified"] = status.st_mtime;
  Archive archive(unzOpen64(bundle.c_str()));
  if (!archive) {
    summary.about["problem"] = "the file is no zip archive";
    return summary;
  }
  summary.about["members"] = ReadMembers(archive);
  summary.updateXml = ReadMember(archive, "update.xml");
  summary.bomXml = ReadMember(archive, "bom.xml");
  return summary;
}
