#include "tests/common/ScarceMemory.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace {
thread_local int g_left = std::numeric_limits<int>::max();
}

ScarceMemory::ScarceMemory(int times) {
  g_left = times;
}

ScarceMemory::~ScarceMemory() {
  g_left = std::numeric_limits<int>::max();
}

void* operator new(size_t size) {
  void* const memory = g_left > 0 ? std::malloc(size > 0 ? size : 1) : nullptr;
  if (!memory) throw std::bad_alloc();
  --g_left;
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}
