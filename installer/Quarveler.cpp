#include "installer/Quarveler.h"

#include <mutex>
#include <utility>
#include <vector>

#include "installer/updater/PenUpdater.h"

namespace {

InsResCode LoadAndVerify(CBundle& bundle, const char* bundleFile, const PenUpdateCfg& cfg) {
  const InsResCode loaded = bundle.Load(bundleFile);
  return loaded == insSuccess ? bundle.Verify(cfg.certificates, cfg.certificateCount) : loaded;
}

InsResCode ReportMissingConfig(const char* tag) {
  g_Logger.LogEvent(tag, "Config is NULL");
  return insNoConfig;
}

}  // namespace

// Bundles that the host did not release stay: at the end of the process what they hold (libcrypto's objects first of
// all) may be gone already.
CQuarveler::~CQuarveler() {
  if (m_mBundles.empty()) return;
  static auto* const kept = new std::vector<BundleTable>;
  kept->push_back(std::move(m_mBundles));
}

InsResCode CQuarveler::LoadBundle(const char* bundleFile, int* bundleHandle) {
  auto bundle = std::make_shared<CBundle>();
  const InsResCode result = bundle->Load(bundleFile);
  if (result != insSuccess) return result;
  const std::lock_guard lock(m_Locker);
  m_mBundles.emplace(m_nLastHandle + 1, std::move(bundle));  // which may fail for lack of memory
  ++m_nLastHandle;
  if (bundleHandle) *bundleHandle = m_nLastHandle;
  return insSuccess;
}

InsResCode CQuarveler::ReleaseBundle(int bundleHandle) {
  BundleTable::node_type released;  // destroyed after the lock is released
  const std::lock_guard lock(m_Locker);
  released = m_mBundles.extract(bundleHandle);
  return released.empty() ? insNoBundle : insSuccess;
}

std::shared_ptr<CBundle> CQuarveler::GetBundle(int bundleHandle) {
  const std::lock_guard lock(m_Locker);
  const auto found = m_mBundles.find(bundleHandle);
  return found == m_mBundles.end() ? nullptr : found->second;
}

InsResCode CQuarveler::VerifyBundle(int bundleHandle, const PenUpdateCfg* cfg) {
  if (!cfg) return ReportMissingConfig("VerifyBundle");
  const std::shared_ptr<CBundle> bundle = GetBundle(bundleHandle);
  return bundle ? bundle->Verify(cfg->certificates, cfg->certificateCount) : insNoBundle;
}

InsResCode CQuarveler::VerifyBundle(const char* bundleFile, const PenUpdateCfg* cfg) {
  if (!cfg) return ReportMissingConfig("VerifyBundle");
  CBundle bundle;
  return LoadAndVerify(bundle, bundleFile, *cfg);
}

InsResCode CQuarveler::StartInstall(int32_t* penHandle, int bundleHandle, const PenUpdateCfg* cfg,
                                    PenUpdateProgressCallback callback, void* userData) {
  CPenUpdater updater;
  const std::shared_ptr<CBundle> bundle = GetBundle(bundleHandle);
  if (!bundle) return insNoBundle;
  return updater.Update(penHandle, bundle.get(), cfg, callback, userData);
}

InsResCode CQuarveler::StartInstall(int32_t* penHandle, const char* bundleFile, const PenUpdateCfg* cfg,
                                    PenUpdateProgressCallback callback, void* userData) {
  if (!cfg) return ReportMissingConfig("StartInstall");
  CBundle bundle;
  const InsResCode verified = LoadAndVerify(bundle, bundleFile, *cfg);
  if (verified != insSuccess) return verified;
  CPenUpdater updater;
  return updater.Update(penHandle, &bundle, cfg, callback, userData);
}

InsResCode CQuarveler::Remove(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback,
                              void* userData) {
  CPenUpdater updater;
  return updater.Remove(penHandle, groupName, callback, userData);
}

InsResCode CQuarveler::Abort(uint64_t penId) {
  return CPenUpdater::Abort(penId);
}

InsResCode CQuarveler::AbortAll() {
  return CPenUpdater::AbortAll();
}

InsResCode CQuarveler::HasPenResource(const char* bundleFile, int32_t penType) {
  CBundle bundle;
  const InsResCode loaded = bundle.Load(bundleFile);
  if (loaded != insSuccess) return loaded;
  return bundle.IsValidForPen(penType) ? insSuccess : insNoResource;
}
