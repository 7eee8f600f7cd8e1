// Paths and files. Both separators are understood: wherever a path is cut, the last backslash is looked for first and
// the last slash only when there is no backslash. No shared state; failures are told by the result alone.
#ifndef QUARVEL_COMMON_FILEUTIL_H
#define QUARVEL_COMMON_FILEUTIL_H

#include <cstddef>
#include <string_view>

class CFileUtil {
 public:
  // Size of the buffers for paths, with the NUL.
  static constexpr int kPathSize = 260;

  // Creates the folder that `path` names up to its last separator, so a caller that wants the last folder itself passes
  // a path that ends in one. A path without a separator creates nothing and is true. With `withParent`, one missing
  // parent is created too, and no more.
  static bool CreateFolder(const char* path, bool withParent);

  // Removes a folder with all that is in it; the first entry that resists ends it. A symbolic link is removed, never
  // followed. The flag is not consulted.
  static bool RemoveFolder(const char* path, bool flag);

  // Writes "/tmp/" and the formatted name, cut to 259 characters, into `out` and returns the whole length. Everything
  // temporary is named through this.
  static int GetTempFilePath(char* out, int outSize, const char* format, ...) __attribute__((format(printf, 3, 4)));

  // Where a path is cut: its last backslash, else its last slash; npos when it has neither.
  static size_t LastSeparator(std::string_view path);

  // Copies the path up to and with its last separator into `out` (kPathSize bytes, cut to fit); false, and `out`
  // untouched, when it has none.
  static bool GetPath(const char* path, char* out);

  // The part after the last separator, or the whole text: a pointer into `path`.
  static const char* GetFileName(const char* path);

  // Whether something is there whose status can be read.
  static bool FileExists(const char* path);

  // The host's working directory and "/" into `out` (kPathSize bytes); returns their length.
  static int GetModulePath(char* out);

  // Reads up to `size` bytes from the file's start; returns their number, 0 when it cannot be opened.
  static int ReadFile(const char* path, char* buffer, int size);
};

#endif
