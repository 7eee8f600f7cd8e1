// The comparison of versions and the other readers of short texts. The input is two texts with a line feed between.
#include <vector>

#include "Common/StringUtil.h"
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto [a, b] = SplitAtLineFeed(TextOf(data, size));
  const int order = CStringUtil::CompareVersion(a, b);
  FUZZ_CHECK(order >= -1 && order <= 1);
  FUZZ_CHECK(CStringUtil::CompareVersion(b, a) == -order);
  FUZZ_CHECK(CStringUtil::CompareVersion(a, a) == 0);

  std::vector<int32_t> numbers;
  std::vector<std::string> tokens;
  CStringUtil::SplitToInts(a, b, numbers);
  CStringUtil::Split(a, b, tokens);
  FUZZ_CHECK(numbers.size() == tokens.size());
  for (size_t i = 0; i < tokens.size(); ++i) {
    FUZZ_CHECK(!tokens[i].empty());
    FUZZ_CHECK(numbers[i] == CStringUtil::ToInt(tokens[i].c_str()));
  }
  return 0;
}
