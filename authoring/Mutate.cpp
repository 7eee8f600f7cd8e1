#include "authoring/Mutate.h"

#include <fmt/format.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "Common/StringUtil.h"
#include "authoring/Failure.h"
#include "authoring/Files.h"
#include "authoring/Manifest.h"
#include "authoring/MutantSource.h"

namespace authoring {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const std::string kEmptyDeflateStream("\x03\x00", 2);
constexpr uint64_t kLargestClaim = 0xFFFFFFFE;                   // of a member without the 64-bit form of its sizes
const std::string kInvalidDeflateStream("\x07\x07\x07\x07", 4);  // the first block is of a kind that does not exist

void Replace(std::string& text, const std::string& from, const std::string& to) {
  text = CStringUtil::ReplaceAll(text, from, to);
}

template <typename Change>
void ChangeEntries(MutantSource& source, Change change) {
  std::for_each(source.entries.begin(), source.entries.end(), change);
}

// A signer that exists for one signature run only.
Signer MakeThrowAwaySigner() {
  CryptoHandle<EVP_PKEY> key(EVP_RSA_gen(2048));
  CryptoHandle<X509> certificate(X509_new());
  CryptoHandle<BIO> keyText(BIO_new(BIO_s_mem()));
  CryptoHandle<BIO> certificateText(BIO_new(BIO_s_mem()));
  bool made = key && certificate && X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0) &&
              X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 1) &&
              X509_set_pubkey(certificate.get(), key.get()) == 1 &&
              X509_sign(certificate.get(), key.get(), EVP_sha256()) > 0 &&
              PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1 &&
              PEM_write_bio_X509(certificateText.get(), certificate.get()) == 1;
  if (!made) throw Failure(ExitStatus::kKey, "libcrypto makes no RSA keys here; allow them in its configuration.");
  auto textOf = [](BIO* stream) {
    char* data = nullptr;
    long size = BIO_get_mem_data(stream, &data);
    return std::string(data, static_cast<size_t>(size));
  };
  return Signer::FromPem(textOf(keyText.get()),
                         Certificate::FromPem(textOf(certificateText.get()), "a new certificate"));
}

// Changes of the members and of the signature manifest's entries.
void Unchanged(MutantSource&) {}
void TamperPackage(MutantSource& source) {
  source.Package().content[0] ^= 1;
}
void ExtendPackage(MutantSource& source) {
  source.Package().content += '\n';
}
void EmptyPackage(MutantSource& source) {
  source.Package().content.clear();
}
void DropPackage(MutantSource& source) {
  source.DropFile(source.package);
}
void UnsignPackage(MutantSource& source) {
  source.DropEntry(source.package);
}
void TamperManifest(MutantSource& source) {
  source.Manifest().content += "<!-- changed -->\n";
}
void UnsignManifest(MutantSource& source) {
  source.DropEntry(kManifestName);
}
void DropManifest(MutantSource& source) {
  source.DropFile(kManifestName);
}
void EmptyManifest(MutantSource& source) {
  source.Manifest().content.clear();
}
void NoGroupList(MutantSource& source) {
  Replace(source.Manifest().content, "GroupList", "Groups");
}
void DropBom(MutantSource& source) {
  source.hasBom = false;
}
void EmptyBom(MutantSource& source) {
  source.bom = "";
}
void OpenBom(MutantSource& source) {
  source.bom = "<?xml version=\"1.0\"?>\n<BOM><File name=\"update.xml\">";
}
void ForeignSubject(MutantSource& source) {
  ChangeEntries(source, [](BomEntry& entry) { entry.subject = "/CN=Somebody Else"; });
}
void SimilarSubject(MutantSource& source) {
  ChangeEntries(source, [](BomEntry& entry) { entry.subject += "/emailAddress=somebody@example.com/OU=Another Unit"; });
}
void UnreadableSubject(MutantSource& source) {
  ChangeEntries(source, [](BomEntry& entry) { entry.subject.insert(0, "\x01"); });
}
void NoSignature(MutantSource& source) {
  ChangeEntries(source, [](BomEntry& entry) { entry.signature.clear(); });
}
// The break falls inside a group of four characters; one between two groups is skipped in the decoding.
void BreakSignature(MutantSource& source) {
  ChangeEntries(source, [](BomEntry& entry) { entry.signature.insert(6, "\n"); });
}
void ForeignKey(MutantSource& source) {
  source.Sign(MakeThrowAwaySigner());
}
void UpperCaseEntries(MutantSource& source) {
  ChangeEntries(source, [](BomEntry& entry) { CStringUtil::ToUpper(entry.name); });
}

// Further members.
void Traversal(MutantSource& source) {
  source.files.push_back({"../quarvel-escaped.txt", "out"});
}
void BackslashTraversal(MutantSource& source) {
  source.files.push_back({"..\\quarvel-escaped.txt", "out"});
}
void InnerTraversal(MutantSource& source) {
  source.files.push_back({"Files/../../quarvel-escaped.txt", "out"});
}
void DeepFolders(MutantSource& source) {
  source.files.push_back({"one/two/three/four.txt", "deep"});
}
void LongName(MutantSource& source) {
  source.files.push_back({std::string(300, 'n'), "long"});
}
void FolderWithoutBit(MutantSource& source) {
  source.files.push_back({"NoBit/", ""});
}
void NoMembers(MutantSource& source) {
  source.files.clear();
  source.hasBom = false;
}
void Bomb(MutantSource& source) {
  for (int i = 0; i < 10'000; ++i) {
    source.files.push_back({fmt::format("bomb-{}.bin", i), kEmptyDeflateStream, kLargestClaim});
  }
}
void DamagedData(MutantSource& source) {
  std::string& content = source.Package().content;
  source.Package().claimedSize = content.size();
  content = kInvalidDeflateStream;
}

// Changes of the manifest, for recipes that sign again.
void LongValues(MutantSource& source) {
  Replace(source.Manifest().content, "<Name>", "<Name>" + std::string(5000, 'n'));
}
void LongVersions(MutantSource& source) {
  Replace(source.Manifest().content, "<Version>", "<Version>" + std::string(300, '1'));
}
void BareAmpersand(MutantSource& source) {
  Replace(source.Manifest().content, "<Name>", "<Name>Salt & Pepper &");
}
void NoFileList(MutantSource& source) {
  Replace(source.Manifest().content, "FileList", "Files");
}
void NoPenTypes(MutantSource& source) {
  Replace(source.Manifest().content, "PenTypes", "Pens");
}
void HugeNumbers(MutantSource& source) {
  Replace(source.Manifest().content, "<TransferOrder>", "<TransferOrder>99999999999999999999");
}
void OpenComment(MutantSource& source) {
  source.Manifest().content += "<!-- " + std::string(1 << 20, 'c');
}

// Changes of the finished file.
void CutInHalf(std::string& bytes) {
  bytes.resize(bytes.size() / 2);
}
void MakeText(std::string& bytes) {
  bytes = "This is no archive.\n";
}
void MakeEmpty(std::string& bytes) {
  bytes.clear();
}

struct Recipe {
  const char* name;
  const char* what;
  InsResCode load;
  InsResCode verify;
  void (*change)(MutantSource&);
  bool signAgain = false;
  void (*changeFile)(std::string&) = nullptr;
};

constexpr Recipe kRecipes[] = {
    {"unchanged", "The bundle itself.", insSuccess, insSuccess, Unchanged},
    {"records-in-upper-case", "The signature manifest spells the files in upper case, which does not matter.",
     insSuccess, insSuccess, UpperCaseEntries},
    {"tampered-package", "One bit of a package file differs from what was signed.", insSuccess, insBadSignature,
     TamperPackage},
    {"extended-package", "A package file has one byte more than was signed.", insSuccess, insBadSignature,
     ExtendPackage},
    {"empty-package", "A package file is empty.", insSuccess, insBadSignature, EmptyPackage},
    {"tampered-manifest", "update.xml was changed after it was signed.", insSuccess, insBadSignature, TamperManifest},
    {"unsigned-package", "A package file has no entry in the signature manifest.", insSuccess, insNoSignature,
     UnsignPackage},
    {"unsigned-manifest", "update.xml has no entry in the signature manifest.", insSuccess, insNoSignature,
     UnsignManifest},
    {"missing-package", "A package file that the manifest lists is not in the archive.", insSuccess, insFileNotFound,
     DropPackage},
    {"no-signature", "The entries of the signature manifest carry no signature.", insSuccess, insBadSignature,
     NoSignature},
    {"broken-signature", "Each signature is broken over two lines.", insSuccess, insBadSignature, BreakSignature},
    {"foreign-signer", "The entries name a signer that nobody trusts.", insSuccess, insNoCertificate, ForeignSubject},
    {"similar-signer", "The signer's subject has two fields more than the certificate's.", insSuccess, insNoCertificate,
     SimilarSubject},
    {"foreign-key", "Signed with another key under the signer's own name.", insSuccess, insBadSignature, ForeignKey},
    {"unreadable-signer", "The signer's subject begins with a control character.", insBadSubject, insSuccess,
     UnreadableSubject},
    {"missing-signature-manifest", "The archive holds no bom.xml.", insBadManifest, insSuccess, DropBom},
    {"empty-signature-manifest", "bom.xml is empty.", insBadManifest, insSuccess, EmptyBom},
    {"open-signature-manifest", "The elements of bom.xml are never closed.", insBadManifest, insSuccess, OpenBom},
    {"missing-manifest", "The archive holds no update.xml.", insBadManifest, insSuccess, DropManifest},
    {"empty-manifest", "update.xml is empty.", insBadManifest, insSuccess, EmptyManifest},
    {"manifest-without-groups", "update.xml has no GroupList.", insBadManifest, insSuccess, NoGroupList},
    {"traversal", "A member's name leads out of the extraction folder.", insExtractFailed, insSuccess, Traversal},
    {"traversal-backslash", "A member's name leads out of the extraction folder with a backslash.", insExtractFailed,
     insSuccess, BackslashTraversal},
    {"traversal-inside", "A member's name leads out of the extraction folder by way of one inside.", insExtractFailed,
     insSuccess, InnerTraversal},
    {"deep-folders", "A member lies three folders deep; the folders are made.", insSuccess, insSuccess, DeepFolders},
    {"long-name", "A member's name has 300 characters; it is cut.", insSuccess, insSuccess, LongName},
    {"folder-without-unix-bit", "A folder's entry does not say that it is one.", insExtractFailed, insSuccess,
     FolderWithoutBit},
    {"empty-archive", "The archive has no members.", insExtractFailed, insSuccess, NoMembers},
    {"truncated", "The second half of the file is missing.", insExtractFailed, insSuccess, Unchanged, false, CutInHalf},
    {"not-an-archive", "The file is a text.", insExtractFailed, insSuccess, Unchanged, false, MakeText},
    {"empty-file", "The file is empty.", insExtractFailed, insSuccess, Unchanged, false, MakeEmpty},
    {"damaged-data", "The packed bytes of a package file are overwritten.", insSuccess, insBadSignature, DamagedData},
    {"bomb", "Ten thousand members claim to unpack to four gibibytes each.", insExtractFailed, insSuccess, Bomb},
    {"long-values", "Names have 5000 characters more than a pen keeps.", insSuccess, insSuccess, LongValues, true},
    {"long-versions", "Versions have 300 digits more than are compared.", insSuccess, insSuccess, LongVersions, true},
    {"bare-ampersand", "Names hold an ampersand that begins no reference.", insSuccess, insSuccess, BareAmpersand,
     true},
    {"group-without-file-list", "No group has a FileList.", insSuccess, insSuccess, NoFileList, true},
    {"group-without-pen-types", "No group names pen types.", insSuccess, insSuccess, NoPenTypes, true},
    {"huge-numbers", "Transfer orders have twenty digits more than fit.", insSuccess, insSuccess, HugeNumbers, true},
    {"open-comment", "A comment of a mebibyte at the manifest's end is never closed.", insSuccess, insSuccess,
     OpenComment, true},
};

void Write(const Recipe& recipe, MutantSource source, const Signer* signer, const std::string& path) {
  recipe.change(source);
  if (recipe.signAgain) source.Sign(*signer);
  source.Write(path);
  if (!recipe.changeFile) return;
  std::string bytes = ReadFile(path);
  recipe.changeFile(bytes);
  WriteFile(path, bytes);
}

void WriteList(const std::vector<Mutant>& mutants, const std::string& path) {
  json list = json::array();
  for (const Mutant& mutant : mutants) {
    list.push_back({{"name", mutant.name}, {"file", mutant.file}, {"what", mutant.what}, {"load", mutant.load}});
    if (mutant.load == insSuccess) list.back()["verify"] = mutant.verify;
  }
  WriteFile(path, json{{"schema", 1}, {"mutants", list}}.dump(2) + "\n");
}

}  // namespace

std::vector<Mutant> Mutate(const std::string& bundle, const std::string& folder, const Signer* signer) {
  MutantSource source(*Contents::Open(bundle));
  std::error_code ignored;  // what cannot be made cannot be written into, and that is reported
  fs::create_directories(folder, ignored);
  std::vector<Mutant> mutants;
  for (const Recipe& recipe : kRecipes) {
    if (recipe.signAgain && !signer) continue;
    std::string file = std::string(recipe.name) + ".zip";
    Write(recipe, source, signer, (fs::path(folder) / file).string());
    mutants.push_back({recipe.name, file, recipe.what, recipe.load, recipe.verify});
  }
  WriteList(mutants, (fs::path(folder) / "expected.json").string());
  return mutants;
}

}  // namespace authoring
