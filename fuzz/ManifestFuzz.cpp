// The manifest "update.xml", read as part of a bundle; then everything that is chosen from it.
#include <algorithm>
#include <cstring>

#include "fuzz/FuzzBundle.h"

namespace {

constexpr char kBom[] =
    "<BOM><F name=\"update.xml\" subject=\"/CN=x\" signature=\"QQ==\"/><F name=\"a.bin\" folder=\"Files\" "
    "subject=\"/CN=x\" signature=\"QQ==\"/></BOM>";

template <class Record>
void CheckAttributes(const Record& record, uint32_t most) {
  FUZZ_CHECK(record.attribCount <= most);
  for (uint32_t i = 0; i < record.attribCount; ++i) {
    const char* const value = record.attribs[i].value;
    FUZZ_CHECK(std::memchr(value, 0, sizeof(record.attribs[i].value)) && *value);
  }
}

void CheckGroup(const BundleGroup& group) {
  FUZZ_CHECK(!group.folder.empty());
  CheckAttributes(group, 5);
  FUZZ_CHECK(std::is_sorted(group.packages.begin(), group.packages.end(), CBundle::CompareBndPak));
  for (const BundlePackage& package : group.packages) {
    FUZZ_CHECK(package.group == &group);
    FUZZ_CHECK(package.localPath.find('\\') == std::string::npos);
    CheckAttributes(package, 2);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzBundle file(TextOf(data, size), kBom);
  CBundle& bundle = file.bundle();
  FUZZ_CHECK(file.result() == insSuccess || file.result() == insBadManifest);
  for (const BundleGroup& group : bundle.groups()) CheckGroup(group);

  std::vector<BundlePackage*> all;
  std::vector<BundlePackage*> firmware;
  std::vector<BundlePackage*> others;
  uint64_t sizes[3];
  bundle.GetPenPackages(1, "", all, &sizes[0], true, true);
  bundle.GetPenPackages(1, "", firmware, &sizes[1], true, false);
  bundle.GetPenPackages(1, "", others, &sizes[2], false, true);
  FUZZ_CHECK(all.size() == firmware.size() + others.size() && sizes[0] == sizes[1] + sizes[2]);
  FUZZ_CHECK(std::is_sorted(all.begin(), all.end(), CBundle::CompareBndPakRef));
  for (BundlePackage* package : all) bundle.Verify(*package);
  FUZZ_CHECK(bundle.Verify() == insNotVerified);
  return 0;
}
