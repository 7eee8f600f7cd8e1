// Loads, loads again or verifies a bundle once, in a process of its own, for comparison with other programs, and prints
// the seconds that this last step took by itself:
// bench_bundle load BUNDLE, bench_bundle again BUNDLE, bench_bundle verify BUNDLE CERTIFICATE
#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "installer/bundle/Bundle.h"

namespace {

// Runs a step that must succeed; returns its seconds.
template <class Step>
double Seconds(std::string_view name, Step step) {
  const auto start = std::chrono::steady_clock::now();
  const InsResCode result = step();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  if (result == insSuccess) return taken.count();
  fmt::print(stderr, "bench_bundle: {}: result {}\n", name, result);
  std::exit(1);
}

InsResCode Trust(CBundle& bundle, const char* certificateFile) {
  std::ifstream in(certificateFile, std::ios::binary);
  const std::string certificate{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  const char* const texts[] = {certificate.c_str()};
  return bundle.LoadVerifyingInfos(texts, 1);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view work = argc > 2 ? argv[1] : "";
  const int wanted = work == "load" || work == "again" ? 3 : work == "verify" ? 4 : 0;
  if (argc != wanted) {
    fmt::print(stderr, "usage: bench_bundle load|again BUNDLE | verify BUNDLE CERTIFICATE\n");
    return 2;
  }
  CBundle bundle;
  double seconds = Seconds("load", [&] { return bundle.Load(argv[2]); });
  if (work == "again") {
    CBundle another;
    seconds = Seconds("load again", [&] { return another.Load(argv[2]); });
  }
  if (work == "verify") {
    Seconds("certificate", [&] { return Trust(bundle, argv[3]); });
    seconds = Seconds("verify", [&] { return bundle.Verify(); });
  }
  fmt::print("{:.6f}\n", seconds);
  return 0;
}
