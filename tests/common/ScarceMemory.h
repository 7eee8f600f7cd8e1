// While it lives, this thread gets memory so and so many times and no more. The program's operator new is replaced for
// it.
#ifndef QUARVEL_TESTS_COMMON_SCARCEMEMORY_H
#define QUARVEL_TESTS_COMMON_SCARCEMEMORY_H

class ScarceMemory {
 public:
  explicit ScarceMemory(int times);
  ~ScarceMemory();
  ScarceMemory(const ScarceMemory&) = delete;
  ScarceMemory& operator=(const ScarceMemory&) = delete;
};

#endif
