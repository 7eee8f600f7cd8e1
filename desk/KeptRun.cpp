#include "desk/KeptRun.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/evp.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "desk/Events.h"
#include "desk/History.h"
#include "desk/PenRun.h"
#include "desk/Text.h"
#include "desk/Version.h"

namespace {

// What is read in a moment; the digest of a larger bundle would hold up its install.
constexpr std::uintmax_t kSoonRead = 32 << 20;

std::string DigestOf(const std::string& file) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  std::ifstream in(file, std::ios::binary);
  if (!context || !in || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) return "";
  std::array<char, 65536> part;
  for (std::uintmax_t read = 0; in && read <= kSoonRead; read += part.size()) {
    in.read(part.data(), part.size());
    EVP_DigestUpdate(context.get(), part.data(), static_cast<size_t>(in.gcount()));
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (!in.eof() || EVP_DigestFinal_ex(context.get(), digest.data(), &size) != 1) return "";
  std::string text;
  for (unsigned i = 0; i < size; ++i) text += fmt::format("{:02x}", digest[i]);
  return text;
}

// A firmware package that was installed, or skipped because the pen has it, tells the pen's firmware.
void TellFirmware(Json& line, const RunEnd& end) {
  if (end.left && end.left->state == PenState::kNormal) line["firmwareAfter"] = end.left->firmware;
  for (const PackageRow& row : end.packages) {
    if (row.fileType != "Firmware") continue;
    bool same = row.outcome == "skipped" && row.reason.starts_with("same version");
    if (same) line["firmwareBefore"] = row.version;
    if (same || row.outcome == "installed") line["firmwareAfter"] = row.version;
  }
}

}  // namespace

KeptRun::KeptRun(History& history, RunFolder folder, const Start& start)
    : m_history(history), m_folder(std::move(folder)) {
  constexpr off_t room = 64 << 10;  // so that a disk that fills up meanwhile still takes the results
  m_journal = open(m_folder.JournalFile().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (m_journal >= 0) fallocate(m_journal, FALLOC_FL_KEEP_SIZE, 0, room);
  Append({{"journal", 1},
          {"program", "quarvel " + LibraryVersion()},
          {"command", start.command},
          {"started", TimeText()},
          {"log", start.log},
          {"logFrom", start.logFrom},
          {"trace", start.trace}});
}

KeptRun::~KeptRun() {
  if (m_journal >= 0) close(m_journal);
}

// A line that was cut by a full disk is taken back.
bool KeptRun::Append(const Json& line) {
  std::string text = ToLine(line);
  std::lock_guard<std::mutex> guard(m_lock);
  off_t before = lseek(m_journal, 0, SEEK_END);
  if (m_journal >= 0 && write(m_journal, text.data(), text.size()) == static_cast<ssize_t>(text.size())) return true;
  if (m_problem.empty()) {
    m_problem =
        fmt::format("this run is not kept whole: {} cannot be written ({})", m_folder.JournalFile(), strerror(errno));
  }
  if (m_journal >= 0 && ftruncate(m_journal, before) != 0) return false;
  return false;
}

void KeptRun::Order(const InstallOrder& order) {
  Json line{{"order", ToJson(order)}};
  std::error_code error;
  if (!order.bundle.empty() && std::filesystem::is_regular_file(order.bundle, error)) {
    std::uintmax_t bytes = std::filesystem::file_size(order.bundle, error);
    if (!error) line["bytes"] = bytes;
    if (!error && bytes <= kSoonRead) line["sha256"] = DigestOf(order.bundle);
  }
  Append(line);
}

void KeptRun::OnStarted(const PenRun& run) {
  const Pen& pen = run.OfPen();
  Json line{{"pen", run.Id()}, {"name", pen.name}, {"began", TimeText()}};
  if (pen.type) line["type"] = *pen.type;
  if (pen.contents) line["firmware"] = pen.contents->firmware;
  Append(line);
}

// Where there is no room for the packages, the result is kept without.
void KeptRun::OnEnded(const PenRun& run, const RunEnd& end) {
  Json line{{"result", run.Id()},
            {"ended", TimeText()},
            {"code", end.code},
            {"exit", static_cast<int>(end.status)},
            {"detail", end.detail},
            {"left", end.left ? WordsOf(*end.left) : ""},
            {"leftState", end.left ? NameOf(end.left->state) : ""},
            {"remedy", end.Remedy()},
            {"seconds", std::round(end.seconds * 10) / 10}};
  TellFirmware(line, end);
  Json whole = line;
  whole["packages"] = Json::array();
  for (const PackageRow& row : end.packages) whole["packages"].push_back(ToJson(row));
  if (!Append(whole)) Append(line);
}

void KeptRun::End(ExitStatus status, std::string_view sentence) {
  {
    std::lock_guard<std::mutex> guard(m_lock);
    if (std::exchange(m_ended, true)) return;
  }
  Append({{"end", TimeText()}, {"exit", static_cast<int>(status)}, {"sentence", sentence}});
  m_history.TakeUp(m_folder);
}

// Another thread may be about to end the run too; of two ends the first counts.
void KeptRun::EndByForce(ExitStatus status, std::string_view sentence) {
  std::string text = ToLine({{"end", TimeText()}, {"exit", static_cast<int>(status)}, {"sentence", sentence}});
  [[maybe_unused]] ssize_t written = write(m_journal, text.data(), text.size());
}

std::string KeptRun::Problem() {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_problem;
}
