// The same in C++, with a loaded bundle that releases itself: verify first, then install on every connected pen.
// usage: install_cpp BUNDLE CERTIFICATE
#include <quarvel/QuarvelPublic.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>

// From the pen library.
extern "C" int32_t pcGetPenHandles(int32_t* handles, int32_t capacity);

namespace {

constexpr int32_t kMostPens = 20;

std::string Meaning(InsResCode code) {
#define ROW(name, value, text, remedy) \
  if (code == (value)) return *remedy ? text ". " remedy : text;
  INS_RESULT_CODES(ROW)
#undef ROW
  return "unknown result " + std::to_string(code);
}

void Require(InsResCode code) {
  if (code < 0) throw std::runtime_error(Meaning(code));
}

class LoadedBundle {
 public:
  explicit LoadedBundle(const std::string& file) { Require(insLoadBundle(file.c_str(), &m_handle)); }
  ~LoadedBundle() { insReleaseBundle(m_handle); }
  LoadedBundle(const LoadedBundle&) = delete;
  LoadedBundle& operator=(const LoadedBundle&) = delete;

  void Verify(const PenUpdateCfg& config) const { Require(insVerifyBundle(m_handle, &config)); }

  InsResCode InstallOn(int32_t& pen, const PenUpdateCfg& config) const {
    return insStartInstall(&pen, m_handle, &config, &LoadedBundle::OnProgress, nullptr);
  }

 private:
  static int32_t OnProgress(int32_t, const PenUpdateProgressCallbackInfo* info, void*) {
    if (info->result != insSuccess) return 1;  // any failing package ends the run
    if (info->itemDone == info->itemTotal) std::cout << "  " << info->packageName << " " << info->version << '\n';
    return 0;
  }

  int m_handle = 0;
};

// False when a pen did not get what the bundle has for it.
bool InstallEverywhere(const std::string& bundleFile, const std::string& certificate) {
  const char* certificates[] = {certificate.c_str()};
  const PenUpdateCfg config{insFlagFirmware | insFlagApps, certificates, 1, nullptr};
  LoadedBundle bundle(bundleFile);
  bundle.Verify(config);

  std::array<int32_t, kMostPens> pens{};
  const int32_t count = std::min(pcGetPenHandles(pens.data(), kMostPens), kMostPens);
  if (count < 1) throw std::runtime_error("no pen is connected");
  bool isWell = true;
  for (int32_t& pen : std::span(pens).first(static_cast<size_t>(count))) {
    std::cout << "pen " << pen << '\n';
    const InsResCode code = bundle.InstallOn(pen, config);
    std::cout << "  " << Meaning(code) << '\n';
    isWell = isWell && code >= 0;
  }
  return isWell;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) throw std::runtime_error("usage: install_cpp BUNDLE CERTIFICATE");
  std::ifstream file(argv[2], std::ios::binary);
  const std::string certificate{std::istreambuf_iterator<char>(file), {}};
  return InstallEverywhere(argv[1], certificate) ? 0 : 1;
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
