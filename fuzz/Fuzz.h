// What the fuzz targets share. A target defines LLVMFuzzerTestOneInput; the fuzzer or the replay of the seeds calls it,
// one input at a time.
#ifndef QUARVEL_FUZZ_FUZZ_H
#define QUARVEL_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Ends the run as a finding unless the condition holds.
#define FUZZ_CHECK(condition)                                                 \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      abort();                                                                \
    }                                                                         \
  } while (false)

inline std::string TextOf(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// The texts before and after the first line feed; the second is empty when there is none.
inline std::pair<std::string, std::string> SplitAtLineFeed(const std::string& text) {
  const size_t feed = text.find('\n');
  return {text.substr(0, feed), feed == std::string::npos ? "" : text.substr(feed + 1)};
}

#endif
