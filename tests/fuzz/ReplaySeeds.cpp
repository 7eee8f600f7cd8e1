// Runs a fuzz target over every file of a folder: what the fuzzer once found is tried by every test run, with any
// compiler. The name of a seed stands before what goes wrong with it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

namespace fs = std::filesystem;

namespace {

void Replay(const fs::path& seed) {
  std::cout << seed.filename().string() << std::endl;
  std::ifstream in(seed, std::ios::binary);
  std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  bytes.shrink_to_fit();  // a byte too far is outside the allocation
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<fs::path> seeds;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(argc > 1 ? argv[1] : ".", error)) seeds.push_back(entry.path());
  std::sort(seeds.begin(), seeds.end());
  for (const fs::path& seed : seeds) Replay(seed);
  std::cout << seeds.size() << " seeds replayed" << std::endl;
  return seeds.empty() ? 1 : 0;
}
