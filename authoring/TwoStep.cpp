#include "authoring/TwoStep.h"

#include <fmt/format.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "authoring/Failure.h"
#include "authoring/Files.h"

namespace authoring {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr const char* kListName = "digests.json";
constexpr size_t kDigestSize = 20;

std::string Sha1Of(const std::string& file) {
  CryptoHandle<EVP_MD_CTX> context(EVP_MD_CTX_new());
  std::string digest(kDigestSize, '\0');
  bool done = EVP_DigestInit_ex(context.get(), EVP_sha1(), nullptr) == 1;
  ReadBlocks(file, [&](std::string_view block) {
    done = done && EVP_DigestUpdate(context.get(), block.data(), block.size()) == 1;
  });
  done = done && EVP_DigestFinal_ex(context.get(), reinterpret_cast<unsigned char*>(digest.data()), nullptr) == 1;
  if (!done) throw Failure(ExitStatus::kKey, "libcrypto makes no SHA-1 digests here; allow them in its configuration.");
  return digest;
}

std::string Hex(std::string_view bytes) {
  std::string text;
  for (char byte : bytes) text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return text;
}

struct DigestEntry {
  std::string sha1;
  std::string signatureFile;
};

// The list by member name.
std::map<std::string, DigestEntry> ReadList(const fs::path& digests) {
  std::string file = (digests / kListName).string();
  std::map<std::string, DigestEntry> entries;
  try {
    json list = json::parse(ReadFile(file));
    for (const json& entry : list.at("files")) {
      entries[entry.at("member")] = {entry.at("sha1"), (digests / entry.at("signature")).string()};
    }
  } catch (const json::exception&) {
    throw Failure(ExitStatus::kFile,
                  fmt::format("{} is not a list of digests; write it again with \"quarvel-bundle digest\".", file));
  }
  return entries;
}

// A signature in base64 on one line, from a file that holds it raw or in base64 with any line breaks.
std::string ReadSignature(const std::string& file, int keySize) {
  std::error_code ignored;
  if (!fs::exists(file, ignored)) {
    throw Failure(ExitStatus::kFile, fmt::format("There is no signature {}; sign the .sha1 file beside it.", file));
  }
  std::string content = ReadFile(file);
  if (content.size() == static_cast<size_t>(keySize)) return EncodeBase64(content);
  std::erase_if(content, [](char c) { return c == '\n' || c == '\r' || c == ' '; });
  if (content.size() != 4 * ((static_cast<size_t>(keySize) + 2) / 3)) {
    throw Failure(ExitStatus::kKey, fmt::format("{} is no signature of the certificate's key, which has {} bytes; "
                                                "sign the .sha1 file beside it.",
                                                file, keySize));
  }
  return content;
}

}  // namespace

size_t WriteDigests(const std::string& folder, const std::string& digests) {
  std::vector<SignedFile> files = FilesToSign(folder);
  std::error_code ignored;  // what cannot be made cannot be written into, and that is reported
  fs::create_directories(digests, ignored);
  json list = json::array();
  for (size_t i = 0; i < files.size(); ++i) {
    std::string digest = Sha1Of(files[i].source);
    std::string stem = fmt::format("{:04}", i + 1);
    WriteFile((fs::path(digests) / (stem + ".sha1")).string(), digest);
    list.push_back(
        {{"member", files[i].member}, {"sha1", Hex(digest)}, {"digest", stem + ".sha1"}, {"signature", stem + ".sig"}});
  }
  WriteFile((fs::path(digests) / kListName).string(), json{{"schema", 1}, {"files", list}}.dump(2) + "\n");
  return files.size();
}

void Attach(const std::string& folder, const std::string& digests, const Certificate& certificate,
            const std::string& output, Effort& effort) {
  std::map<std::string, DigestEntry> entries = ReadList(digests);
  int keySize = EVP_PKEY_get_size(X509_get0_pubkey(certificate.handle()));
  PackWith(
      folder, certificate, output,
      [&](const SignedFile& file) {
        auto entry = entries.find(file.member);
        if (entry == entries.end() || entry->second.sha1 != Hex(Sha1Of(file.source))) {
          throw Failure(ExitStatus::kFile,
                        fmt::format("{} is not what was digested; run \"quarvel-bundle digest\" and sign "
                                    "again.",
                                    file.source));
        }
        return ReadSignature(entry->second.signatureFile, keySize);
      },
      effort);
}

}  // namespace authoring
