// What the host is told, and what it answers.
#include "Common/FileUtil.h"
#include "Common/HostThread.h"
#include "installer/updater/Reports.h"

namespace {

void DescribePackage(const BundlePackage& package, PenUpdateProgressCallbackInfo& info) {
  info.packageFile = package.localPath.c_str();
  info.packageName = package.name.c_str();
  info.guid = package.guid.c_str();
  info.version = package.version.c_str();
  info.action = package.action.c_str();
  info.fileType = package.fileType.c_str();
  info.transferOrder = package.transferOrder;
}

PenUpdateProgressCallbackInfo DescribeRun(const UpdaterPen& pen, const UpdateRun& run) {
  PenUpdateProgressCallbackInfo info{};
  info.penId = pen.m_penId;
  if (run.m_curPackage) DescribePackage(*run.m_curPackage, info);
  info.properties = run.m_curProperties.empty() ? nullptr : run.m_curProperties.data();
  info.bundleFile = run.m_bundle ? run.m_bundle->bundleFile().c_str() : nullptr;
  info.groupName = run.m_curGroupName.c_str();
  info.doneCount = run.m_doneBytes;
  info.totalCount = run.m_totalBytes;
  info.startTime = run.m_startTime;
  return info;
}

}  // namespace

void BeginRun(UpdateRun& run, CBundle* bundle, PenUpdateProgressCallback callback, void* userData) {
  run.m_bundle = bundle;
  if (bundle) run.m_certificates = bundle->GetVerifyingInfos();
  run.m_callback = callback;
  run.m_userData = userData;
  run.m_processingItems.clear();
}

void TakeInHand(UpdateRun& run, BundlePackage& package) {
  run.m_curPackage = &package;
  run.m_isVerified = false;
  run.m_curPakName = CFileUtil::GetFileName(package.localPath.c_str());
  run.m_curGroupName = package.group->name;
  run.m_curProperties.clear();
  for (const BundlePackageProperty& property : package.properties) {
    run.m_curProperties.push_back({property.name.c_str(), property.value.c_str()});
  }
}

QUARVEL_CATCHES_THREAD_ENDS int32_t CallHost(UpdateRun& run, int32_t penHandle,
                                             const PenUpdateProgressCallbackInfo& info) {
  try {
    return run.m_callback(penHandle, &info, run.m_userData);
  } catch (const ThreadEnds&) {
    run.m_abort = true;
    throw;
  } catch (...) {
    run.m_hostThrew = true;
    run.m_abort = true;
    return 1;
  }
}

// The record carries the properties but not their number: hosts have come to rely on 0 there.
int32_t CPenUpdater::NotifyProgress(uint64_t itemDone, uint64_t itemTotal) {
  if (!m_callback) return 0;
  PenUpdateProgressCallbackInfo info = DescribeRun(*this, *this);
  info.itemDone = itemDone;
  info.itemTotal = itemTotal;
  const int32_t answer = CallHost(*this, m_penHandle, info);
  if (answer != 0) m_abort = true;
  return answer;
}

// Without a callback every failure is final.
int32_t CPenUpdater::NotifyError(InsResCode code) {
  if (!m_callback) return 1;
  PenUpdateProgressCallbackInfo info = DescribeRun(*this, *this);
  info.result = code;
  info.propertyCount = static_cast<int32_t>(m_curProperties.size());
  return CallHost(*this, m_penHandle, info);
}

InsResCode AskToSkip(CPenUpdater& updater, InsResCode code) {
  if (updater.NotifyError(code) == 0) return insSuccess;
  return updater.m_hostThrew ? insAborted : code;
}

InsResCode FinishPackage(CPenUpdater& updater) {
  const auto size = static_cast<uint64_t>(int64_t{updater.m_curPackage->fileSize});
  updater.NotifyProgress(size, size);
  if (updater.m_abort) return insAborted;
  updater.m_doneBytes += size;
  return insSuccess;
}
