// The base64 decoder, with buffers of exactly the size that it asks for.
#include <vector>

#include "Common/Base64.h"
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<unsigned char> in(data, data + size);
  const int length = static_cast<int>(size);
  std::vector<unsigned char> out(static_cast<size_t>(CBase64::DecodedSize(length)));
  const int count = CBase64::Decode(out.data(), in.data(), length);
  FUZZ_CHECK(count >= 0 && count < CBase64::DecodedSize(length));
  FUZZ_CHECK(out[static_cast<size_t>(count)] == 0);
  return 0;
}
