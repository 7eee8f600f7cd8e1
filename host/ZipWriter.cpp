#include "host/ZipWriter.h"

#include <errno.h>
#include <fmt/format.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <zip.h>

#include <utility>

#include "desk/Failure.h"

namespace {

[[noreturn]] void Fail(const std::string& path, std::string_view reason) {
  throw Failure(ExitStatus::kUsage,
                fmt::format("{} cannot be written ({}); choose another file with -o.", path, reason));
}

zip_fileinfo Now() {
  time_t seconds = time(nullptr);
  tm local{};
  localtime_r(&seconds, &local);
  zip_fileinfo info{};
  info.tmz_date.tm_sec = static_cast<decltype(info.tmz_date.tm_sec)>(local.tm_sec);
  info.tmz_date.tm_min = static_cast<decltype(info.tmz_date.tm_min)>(local.tm_min);
  info.tmz_date.tm_hour = static_cast<decltype(info.tmz_date.tm_hour)>(local.tm_hour);
  info.tmz_date.tm_mday = static_cast<decltype(info.tmz_date.tm_mday)>(local.tm_mday);
  info.tmz_date.tm_mon = static_cast<decltype(info.tmz_date.tm_mon)>(local.tm_mon);
  info.tmz_date.tm_year = static_cast<decltype(info.tmz_date.tm_year)>(local.tm_year + 1900);
  return info;
}

}  // namespace

ZipWriter::ZipWriter(const std::string& path) : m_path(path), m_zip(zipOpen64(path.c_str(), APPEND_STATUS_CREATE)) {
  if (!m_zip) Fail(m_path, strerror(errno));
}

ZipWriter::~ZipWriter() {
  if (!m_zip) return;
  zipClose(m_zip, nullptr);
  remove(m_path.c_str());
}

void ZipWriter::Require(int minizipResult) const {
  if (minizipResult != ZIP_OK) Fail(m_path, "writing failed; is the disk full?");
}

void ZipWriter::Add(const std::string& name, std::string_view content) {
  zip_fileinfo info = Now();
  Require(zipOpenNewFileInZip(m_zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED,
                              Z_DEFAULT_COMPRESSION));
  Require(zipWriteInFileInZip(m_zip, content.data(), static_cast<unsigned>(content.size())));
  Require(zipCloseFileInZip(m_zip));
}

void ZipWriter::Close() {
  Require(zipClose(std::exchange(m_zip, nullptr), nullptr));
}
