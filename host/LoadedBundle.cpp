#include "host/LoadedBundle.h"

#include <fmt/format.h>

#include <utility>

Configuration::Configuration(const Options& options)
    : m_group(options.group), m_texts(ReadCertificates(options.certificates)) {
  for (const std::string& text : m_texts) m_pointers.push_back(text.c_str());
  bool both = options.firmware == options.apps;
  if (both || options.firmware) m_cfg.flags |= insFlagFirmware;
  if (both || options.apps) m_cfg.flags |= insFlagApps;
  if (options.force) m_cfg.flags |= insFlagForce;
  m_cfg.certificates = m_pointers.data();
  m_cfg.certificateCount = static_cast<int32_t>(m_pointers.size());
  m_cfg.group = m_group.c_str();
}

LoadedBundle::LoadedBundle(const Session& session, const std::string& file, const Configuration& configuration) {
  InsResCode loaded = insLoadBundle(file.c_str(), &m_handle);
  session.Require(loaded, "insLoadBundle", fmt::format("Ret={}, BundleFile={}", loaded, file));
  InsResCode valid = insVerifyBundle(m_handle, &*configuration);
  if (valid == insSuccess) return;
  int handle = std::exchange(m_handle, 0);
  std::string line = fmt::format("Ret={}, bundleHandle={}", valid, handle);
  insReleaseBundle(handle);
  session.Require(valid, "insVerifyBundle", line);
}
