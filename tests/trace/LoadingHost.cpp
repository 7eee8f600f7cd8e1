// Loads the caller, and the pen library with it, twice: the second time it may stand elsewhere.
#include <dlfcn.h>
#include <sys/mman.h>

#include <cstdio>

int main(int argc, char** argv) {
  for (int i = 0; i < 2; ++i) {
    void* caller = dlopen(CALLER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (!caller) {
      std::fprintf(stderr, "%s\n", dlerror());
      return 1;
    }
    reinterpret_cast<int (*)(int, char**)>(dlsym(caller, "RunCaller"))(argc, argv);
    dlclose(caller);
    // The room where it stood is taken.
    mmap(nullptr, 64 << 20, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  }
  return 0;
}
