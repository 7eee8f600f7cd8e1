// The reader of "key=value" lines. The input's first line is a key to look up, the rest the text to read.
#include "Common/Properties.h"
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto [key, text] = SplitAtLineFeed(TextOf(data, size));
  CProperties properties;
  const bool whole = properties.Read(text);
  const std::string value = properties.GetValue(key);
  FUZZ_CHECK(value.size() <= text.size());
  FUZZ_CHECK(value.empty() || (value.front() != ' ' && value.back() != ' '));
  if (!value.empty()) FUZZ_CHECK(key.find_first_of(";#[=:") == std::string::npos);

  // The first of two lines with one key wins, so the text read twice in a row says the same.
  if (whole) {
    FUZZ_CHECK(properties.Read(text + "\n" + text));
    FUZZ_CHECK(properties.GetValue(key) == value);
  }
  return 0;
}
