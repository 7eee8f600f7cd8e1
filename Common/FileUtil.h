// Paths and files. Both separators are understood: wherever a path is cut, the last backslash is looked for first and
// the last slash only when there is no backslash. No shared state; failures are told by the result alone.
#ifndef QUARVEL_COMMON_FILEUTIL_H
#define QUARVEL_COMMON_FILEUTIL_H

class CFileUtil {
 public:
  // Size of the buffers for paths, with the NUL.
  static constexpr int kPathSize = 260;

  // Creates the folder that `path` names up to its last separator, so a caller that wants the last folder itself passes
  // a path that ends in one. A path without a separator creates nothing and is true. With `withParent`, one missing
  // parent is created too, and no more.
  static bool CreateFolder(const char* path, bool withParent);
  static bool RemoveFolder(const char* path, bool flag);
  static int GetTempFilePath(char* out, int outSize, const char* format, ...) __attribute__((format(printf, 3, 4)));
  static bool GetPath(const char* path, char* out);
  static const char* GetFileName(const char* path);
  static bool FileExists(const char* path);
  static int GetModulePath(char* out);
  static int ReadFile(const char* path, char* buffer, int size);
};

#endif
