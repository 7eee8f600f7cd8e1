// A copy of a bundle under a date of its own. The library unpacks a bundle into a folder that is named for its file's
// size and date, and takes what lies there of the right size as it is: another bundle of the same size and date, loaded
// before, would be taken instead.
#ifndef QUARVEL_DESK_FRESHCOPY_H
#define QUARVEL_DESK_FRESHCOPY_H

#include <string>

class FreshCopy {
 public:
  // Throws a Failure when the bundle cannot be copied.
  explicit FreshCopy(const std::string& bundle);
  // Removes the copy and what was unpacked from it.
  ~FreshCopy();
  FreshCopy(const FreshCopy&) = delete;
  FreshCopy& operator=(const FreshCopy&) = delete;

  std::string File() const { return m_folder + "/bundle"; }

 private:
  std::string m_folder;
};

// The folder into which the library unpacks the file; empty when there is no such file.
std::string UnpackedFolder(const std::string& bundle);

#endif
