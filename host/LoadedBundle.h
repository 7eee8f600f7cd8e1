// A bundle that the library has loaded and verified, released with the object. One serves any number of runs
// at once.
#ifndef QUARVEL_HOST_LOADEDBUNDLE_H
#define QUARVEL_HOST_LOADEDBUNDLE_H

#include <string>

#include "host/Session.h"

// What to install and whom to trust, with the texts that the library's record borrows.
class Configuration {
 public:
  // Reads the certificates. With neither firmware nor applications chosen both are taken.
  explicit Configuration(const Options& options);
  Configuration(const Configuration&) = delete;
  Configuration& operator=(const Configuration&) = delete;
  const PenUpdateCfg& operator*() const { return m_cfg; }

 private:
  std::string m_group;
  std::vector<std::string> m_texts;
  std::vector<const char*> m_pointers;
  PenUpdateCfg m_cfg{};
};

class LoadedBundle {
 public:
  // Throws a CallFailure when the bundle cannot be loaded or is not valid.
  LoadedBundle(const Session& session, const std::string& file, const Configuration& configuration);
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
