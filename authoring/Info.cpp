#include "authoring/Info.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <vector>

#include "authoring/Manifest.h"

namespace authoring {

using nlohmann::json;

namespace {

json DescribeGroup(const BundleGroup& group) {
  return {{"name", group.name},         {"version", group.version},         {"description", group.description},
          {"category", group.category}, {"locale", group.locale},           {"folder", group.folder},
          {"system", group.isSystem},   {"locked", group.isLocked},         {"private", group.isPrivate},
          {"penTypes", group.penTypes}, {"packages", group.packages.size()}};
}

json DescribePackage(const BundlePackage& package) {
  json properties = json::array();
  for (const BundlePackageProperty& property : package.properties) {
    properties.push_back({{"name", property.name}, {"value", property.value}});
  }
  return {{"name", package.name},
          {"group", package.group->name},
          {"file", package.bundlePath},
          {"guid", package.guid},
          {"version", package.version},
          {"build", package.buildNumber},
          {"fileType", package.fileType},
          {"action", package.action},
          {"transferOrder", package.transferOrder},
          {"size", package.fileSize},
          {"signer", package.drmInfo ? package.drmInfo->subjectText : ""},
          {"properties", properties}};
}

const Certificate* FindCertificate(const std::string& subject, std::span<const Certificate> certificates) {
  CertSubject signer{};
  if (!CVerifier::LoadSubject(signer, subject.c_str())) return nullptr;
  for (const Certificate& certificate : certificates) {
    CVerifier verifier;
    if (verifier.LoadCert(certificate.pem().c_str()) && verifier.CompareSubject(signer)) return &certificate;
  }
  return nullptr;
}

json DescribeSigners(const LoadedBundle& loaded, std::span<const Certificate> certificates) {
  std::map<std::string, int> filesOf;
  if (const BundleFileDRMInfo* record = loaded.bundle().GetDRMInfo(kManifestName)) ++filesOf[record->subjectText];
  for (const BundlePackage* package : loaded.Packages()) {
    if (package->drmInfo) ++filesOf[package->drmInfo->subjectText];
  }
  json signers = json::array();
  for (const auto& [subject, files] : filesOf) {
    json signer{{"subject", subject}, {"files", files}};
    if (const Certificate* certificate = FindCertificate(subject, certificates)) {
      signer["notBefore"] = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(certificate->NotBefore()));
      signer["notAfter"] = fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(certificate->NotAfter()));
    }
    signers.push_back(std::move(signer));
  }
  return signers;
}

std::string PenTypesText(const json& penTypes) {
  if (penTypes.empty()) return "none";
  auto types = penTypes.get<std::vector<int>>();
  return std::find(types.begin(), types.end(), 0) != types.end() ? "every" : fmt::format("{}", fmt::join(types, ","));
}

std::string Text(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

}  // namespace

json DescribeBundle(const LoadedBundle& loaded, std::span<const Certificate> certificates) {
  json groups = json::array();
  for (const BundleGroup& group : loaded.bundle().groups()) groups.push_back(DescribeGroup(group));
  json packages = json::array();
  for (const BundlePackage* package : loaded.Packages()) packages.push_back(DescribePackage(*package));
  return {{"schema", 1},      {"bundle", loaded.path()}, {"description", loaded.bundle().description()},
          {"groups", groups}, {"packages", packages},    {"signers", DescribeSigners(loaded, certificates)}};
}

std::string InfoText(const json& info) {
  std::vector<std::vector<std::string>> groups{{"GROUP", "VERSION", "PEN TYPES", "CATEGORY", "PACKAGES"}};
  for (const json& group : info["groups"]) {
    groups.push_back({Text(group["name"]), Text(group["version"]), PenTypesText(group["penTypes"]),
                      Text(group["category"]), Text(group["packages"])});
  }
  std::vector<std::vector<std::string>> packages{
      {"ORDER", "TYPE", "NAME", "VERSION", "BUILD", "GUID", "GROUP", "BYTES", "FILE"}};
  for (const json& package : info["packages"]) {
    packages.emplace_back();
    for (const char* field :
         {"transferOrder", "fileType", "name", "version", "build", "guid", "group", "size", "file"}) {
      packages.back().push_back(Text(package[field]));
    }
  }
  std::vector<std::vector<std::string>> signers{{"SIGNER", "FILES", "VALID FROM", "VALID TO"}};
  for (const json& signer : info["signers"]) {
    signers.push_back({Text(signer["subject"]), Text(signer["files"]), signer.value("notBefore", "(give --cert)"),
                       signer.value("notAfter", "")});
  }
  return fmt::format("{}\n{}\n\n{}\n{}\n{}", Text(info["bundle"]), Text(info["description"]), Table(groups),
                     Table(packages), Table(signers));
}

std::string Table(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const std::vector<std::string>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) line += fmt::format("{:<{}}  ", row[i], widths[i]);
    line.resize(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace authoring
