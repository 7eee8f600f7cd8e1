// The one object behind the exported functions: it keeps the loaded bundles under their handles and turns every request
// into work on a bundle or on an updater made for the call. Any thread may call anything; the lock is held around the
// table alone, never while a bundle is loaded, verified or installed.
#ifndef QUARVEL_INSTALLER_QUARVELER_H
#define QUARVEL_INSTALLER_QUARVELER_H

#include <cstdint>
#include <map>
#include <memory>

#include "Common/Locker.h"
#include "Common/Logger_mac.h"
#include "installer/QuarvelPublic.h"
#include "installer/bundle/Bundle.h"

class CQuarveler {
 public:
  CQuarveler() = default;
  ~CQuarveler();
  CQuarveler(const CQuarveler&) = delete;
  CQuarveler& operator=(const CQuarveler&) = delete;

  // Loaded bundles. Handles count up from 1 and are never given out again; a failed load consumes none and leaves
  // `*bundleHandle` (which may be null) as it was.
  InsResCode LoadBundle(const char* bundleFile, int* bundleHandle);
  InsResCode ReleaseBundle(int bundleHandle);
  // Null for an unknown handle. The bundle outlives its release for as long as the caller holds it.
  std::shared_ptr<CBundle> GetBundle(int bundleHandle);

  InsResCode VerifyBundle(int bundleHandle, const PenUpdateCfg* cfg);
  InsResCode VerifyBundle(const char* bundleFile, const PenUpdateCfg* cfg);

  // The form with a handle does not verify the bundle as a whole, the form with a file always does.
  InsResCode StartInstall(int32_t* penHandle, int bundleHandle, const PenUpdateCfg* cfg,
                          PenUpdateProgressCallback callback, void* userData);
  InsResCode StartInstall(int32_t* penHandle, const char* bundleFile, const PenUpdateCfg* cfg,
                          PenUpdateProgressCallback callback, void* userData);
  InsResCode Remove(int32_t penHandle, const char* groupName, PenUpdateProgressCallback callback, void* userData);

  InsResCode Abort(uint64_t penId);
  InsResCode AbortAll();

  // 0 when the bundle has anything for this pen type, -5 when not, else what loading it gave.
  InsResCode HasPenResource(const char* bundleFile, int32_t penType);

 private:
  using BundleTable = std::map<int32_t, std::shared_ptr<CBundle>>;

  CLogger m_logger;  // never initialised: everything is logged through g_Logger
  int32_t m_nLastHandle = 0;
  BundleTable m_mBundles;
  CLocker m_Locker;  // guards m_nLastHandle and m_mBundles
};

#endif
