#include "Common/Base64.h"

#include <array>
#include <cstdint>
#include <string_view>

namespace {

constexpr int8_t kNone = -1;

constexpr std::array<int8_t, 256> MakeValues() {
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::array<int8_t, 256> values{};
  values.fill(kNone);
  for (size_t i = 0; i < kAlphabet.size(); ++i)
    values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  return values;
}

constexpr auto kValues = MakeValues();

// One group of four characters, read no further than the text's NUL or its end.
struct Group {
  std::array<int8_t, 4> values{kNone, kNone, kNone, kNone};

  Group(const unsigned char* in, const unsigned char* end) {
    for (size_t i = 0; i < values.size() && in + i < end && in[i] != 0; ++i) values[i] = kValues[in[i]];
  }

  // How many of its three bytes count.
  int Bytes() const {
    if (values[1] == kNone || values[2] == kNone) return 1;
    return values[3] == kNone ? 2 : 3;
  }

  void Write(unsigned char* out) const {
    uint32_t bits = 0;
    for (const int8_t value : values) bits = bits << 6 | (value == kNone ? 0U : static_cast<uint32_t>(value));
    for (int i = 0; i < Bytes(); ++i) out[i] = static_cast<unsigned char>(bits >> (16 - 8 * i));
  }
};

}  // namespace

int CBase64::Decode(unsigned char* out, const unsigned char* in, int length) {
  *out = 0;
  if (!in || length <= 0 || *in == 0) return 0;
  const unsigned char* const end = in + length;
  int written = 0;
  for (int left = length;; left -= 4) {
    const Group group(in, end);
    group.Write(out + written);
    written += group.Bytes();
    if (group.Bytes() < 3 || left == 4) break;
    for (in += 4; in < end && (*in == '\r' || *in == '\n');) ++in;
  }
  out[written] = 0;
  return written;
}
