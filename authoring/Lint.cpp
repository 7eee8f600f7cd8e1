#include "authoring/Lint.h"

#include <algorithm>
#include <string_view>
#include <tuple>

#include "Common/StringUtil.h"
#include "authoring/Failure.h"

namespace authoring {

namespace {

ManifestSource ReadSource(Contents& contents, const char* file) {
  ManifestSource source;
  source.file = file;
  std::optional<std::string> text = contents.ReadManifest(file);
  if (!text) return source;
  source.present = true;
  source.text = std::move(*text);
  source.text.resize(std::min(source.text.find('\0'), source.text.size()));  // the library's parser ends there
  return source;
}

void Parse(ManifestSource& source) {
  source.tokens = CutTokens(source.text);
  source.root = ParseSource(source.text);
}

SignatureRecord ReadRecord(const SourceElement& element) {
  SignatureRecord record;
  auto read = [&element](const char* attribute, std::string& out) {
    const std::string* value = element.Attribute(attribute);
    if (value) out = *value;
    return value != nullptr;
  };
  std::string folder;
  record.line = element.line;
  record.hasName = read("name", record.name);
  record.hasSubject = read("subject", record.subject);
  read("signature", record.signature);
  read("folder", folder);
  record.key = record.name;
  if (!folder.empty() && folder != "/" && folder != "\\") {
    record.key = CStringUtil::ReplaceAll(folder + "/" + record.name, "//", "/");
    record.key = CStringUtil::ReplaceAll(record.key, "\\\\", "/");
  }
  record.key = LowerCase(record.key);
  return record;
}

// What an archive unpacks, or what packing the folder would put into one.
std::vector<std::string> ShippedMembers(const LintInput& input) {
  std::vector<std::string> members;
  if (input.contents.isArchive()) {
    for (const Member& member : input.contents.members()) members.push_back(member.name);
    return members;
  }
  if (input.manifest) {
    for (const ManifestPackage* package : input.manifest->FilePackages()) members.push_back(package->Member());
  }
  std::sort(members.begin(), members.end());
  members.insert(members.begin(), {kSignatureManifestName, kManifestName});
  return members;
}

}  // namespace

LintInput::LintInput(Contents& source, std::vector<Certificate> given)
    : contents(source),
      update(ReadSource(source, kManifestName)),
      bom(ReadSource(source, kSignatureManifestName)),
      certificates(std::move(given)) {
  Parse(update);
  Parse(bom);
  try {
    manifest = std::make_unique<Manifest>(update.text, kManifestName);
  } catch (const Failure& failure) {
    manifestFault = failure.what();
  }
  if (bom.root) {
    for (const SourceElement& element : bom.root->children) signatures.push_back(ReadRecord(element));
  }
  shipped = ShippedMembers(*this);
}

std::vector<const LintRule*> AllLintRules() {
  std::vector<const LintRule*> all;
  for (std::span<const LintRule> rules : {TextRules(), ManifestRules(), ArchiveRules(), SignatureRules()}) {
    for (const LintRule& rule : rules) all.push_back(&rule);
  }
  return all;
}

std::string PlaceOf(const Finding& finding) {
  return finding.line > 0 ? finding.file + ':' + std::to_string(finding.line) : finding.file;
}

std::vector<Finding> Lint(const LintInput& input) {
  std::vector<Finding> found;
  for (const LintRule* rule : AllLintRules()) {
    Findings findings(*rule, found);
    rule->check(input, findings);
  }
  std::stable_sort(found.begin(), found.end(), [](const Finding& a, const Finding& b) {
    return std::tuple(a.file, a.line, std::string_view(a.rule->name)) <
           std::tuple(b.file, b.line, std::string_view(b.rule->name));
  });
  return found;
}

}  // namespace authoring
