#include "trace/NextLibrary.h"

#include <dlfcn.h>
#include <limits.h>

namespace trace {

void* FindNext(const char* function) {
  if (void* found = dlsym(RTLD_NEXT, function)) return found;
  // A pen library that came with a plug-in stands in a scope of its own.
  void* library = dlopen("libTessvik.so", RTLD_LAZY | RTLD_NOLOAD);
  void* found = library ? dlsym(library, function) : nullptr;
  if (library) dlclose(library);  // the plug-in still holds it
  dlerror();
  return found;
}

void DescribeNextLibrary(Line& line) {
  Dl_info about{};
  void* const function = FindNext("pcGetPenHandles");
  if (!function || dladdr(function, &about) == 0) return;
  line.Text("library", about.dli_fname, 512);
  if (FindNext("pbErrorText")) line.Flag("simulator", true);
}

}  // namespace trace
