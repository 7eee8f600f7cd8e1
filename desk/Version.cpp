#include "desk/Version.h"

#include <array>

#include "installer/QuarvelPublic.h"

std::string LibraryVersion() {
  std::array<char, 64> text{};
  insGetVersion(nullptr, text.data(), static_cast<int>(text.size() - 1));
  return text.data();
}
