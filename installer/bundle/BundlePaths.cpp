#include "installer/bundle/BundlePaths.h"

#include <algorithm>

std::string PathInside(std::string_view bundlePath) {
  std::string path(bundlePath);
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

bool LeadsOut(std::string_view pathInside) {
  int depth = 0;
  for (size_t start = 0, end = 0; start < pathInside.size(); start = end + 1) {
    end = std::min(pathInside.find('/', start), pathInside.size());
    const std::string_view part = pathInside.substr(start, end - start);
    if (part.empty() || part == ".") continue;
    depth += part == ".." ? -1 : 1;
    if (depth < 0) return true;
  }
  return false;
}
