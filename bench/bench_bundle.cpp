// Loads or verifies a bundle once, in a process of its own, for comparison with other programs:
// bench_bundle load BUNDLE, bench_bundle verify BUNDLE CERTIFICATE
#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <string>

#include "installer/bundle/Bundle.h"

namespace {

int Verify(CBundle& bundle, const char* certificateFile) {
  std::ifstream in(certificateFile, std::ios::binary);
  const std::string certificate{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const char* const texts[] = {certificate.c_str()};
  const InsResCode loaded = bundle.LoadVerifyingInfos(texts, 1);
  return loaded != insSuccess ? loaded : bundle.Verify();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string work = argc > 2 ? argv[1] : "";
  if (!(work == "load" && argc == 3) && !(work == "verify" && argc == 4)) {
    fmt::print(stderr, "usage: bench_bundle load BUNDLE | verify BUNDLE CERTIFICATE\n");
    return 2;
  }
  CBundle bundle;
  InsResCode result = bundle.Load(argv[2]);
  if (result == insSuccess && work == "verify") result = Verify(bundle, argv[3]);
  if (result != insSuccess) fmt::print(stderr, "{} {}: result {}\n", work, argv[2], result);
  return result == insSuccess ? 0 : 1;
}
