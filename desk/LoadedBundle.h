// A bundle that the library has loaded and verified, released with the object. One serves any number of runs
// at once.
#ifndef QUARVEL_DESK_LOADEDBUNDLE_H
#define QUARVEL_DESK_LOADEDBUNDLE_H

#include <string>
#include <vector>

#include "desk/LogReader.h"
#include "installer/QuarvelPublic.h"

// What to take of a bundle, and whom to trust.
struct InstallChoice {
  std::string group;                      // empty: every group
  std::vector<std::string> certificates;  // files
  bool firmware = false;                  // with neither this nor `apps` both are taken
  bool apps = false;
  bool force = false;
};

// The library's record of a choice, with the texts that it borrows. Only read once it is made.
class Configuration {
 public:
  // Reads the certificates; throws a Failure for one that cannot be read.
  explicit Configuration(const InstallChoice& choice);
  Configuration(const Configuration&) = delete;
  Configuration& operator=(const Configuration&) = delete;

  const PenUpdateCfg& operator*() const { return m_cfg; }
  const std::string& Group() const { return m_group; }
  bool TakesFirmware() const { return (m_cfg.flags & insFlagFirmware) != 0; }

 private:
  std::string m_group;
  std::vector<std::string> m_texts;
  std::vector<const char*> m_pointers;
  PenUpdateCfg m_cfg{};
};

class LoadedBundle {
 public:
  // Throws a CallFailure when the bundle cannot be loaded or is not valid.
  LoadedBundle(const LogReader& log, const std::string& file, const Configuration& configuration);
  ~LoadedBundle() {
    if (m_handle > 0) insReleaseBundle(m_handle);
  }
  LoadedBundle(const LoadedBundle&) = delete;
  LoadedBundle& operator=(const LoadedBundle&) = delete;

  int Handle() const { return m_handle; }

 private:
  int m_handle = 0;
};

#endif
