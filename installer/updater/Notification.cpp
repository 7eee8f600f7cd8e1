// What the host is told, and what it answers.
#include "Common/FileUtil.h"
#include "installer/updater/PenUpdater.h"

void CPenUpdater::Begin(CBundle* bundle, PenUpdateProgressCallback callback, void* userData) {
  m_bundle = bundle;
  m_callback = callback;
  m_userData = userData;
  m_processingItems.clear();
}

void CPenUpdater::SetCurrentPackage(BundlePackage& package) {
  m_curPackage = &package;
  m_curPakName = CFileUtil::GetFileName(package.localPath.c_str());
  m_curGroupName = package.group->name;
  m_curProperties.clear();
  for (const BundlePackageProperty& property : package.properties) {
    m_curProperties.push_back({property.name.c_str(), property.value.c_str()});
  }
}

PenUpdateProgressCallbackInfo CPenUpdater::DescribePackage() const {
  PenUpdateProgressCallbackInfo info{};
  info.penId = m_penId;
  info.packageFile = m_curPackage->localPath.c_str();
  info.packageName = m_curPackage->name.c_str();
  info.guid = m_curPackage->guid.c_str();
  info.version = m_curPackage->version.c_str();
  info.action = m_curPackage->action.c_str();
  info.fileType = m_curPackage->fileType.c_str();
  info.transferOrder = m_curPackage->transferOrder;
  info.properties = m_curProperties.empty() ? nullptr : m_curProperties.data();
  info.bundleFile = m_bundle->bundleFile().c_str();
  info.groupName = m_curGroupName.c_str();
  info.doneCount = m_doneBytes;
  info.totalCount = m_totalBytes;
  info.startTime = m_startTime;
  return info;
}

// Reports progress; a non-zero answer, which is also returned, stops the run. The record carries the properties but
// not their number: hosts have come to rely on 0 there.
int32_t CPenUpdater::NotifyProgress(uint64_t itemDone, uint64_t itemTotal) {
  if (!m_callback) return 0;
  PenUpdateProgressCallbackInfo info = DescribePackage();
  info.itemDone = itemDone;
  info.itemTotal = itemTotal;
  const int32_t answer = CallHost(m_penHandle, info);
  if (answer != 0) m_abort = true;
  return answer;
}

// Reports a failed package; a non-zero answer makes the failure final, and so does the lack of a callback.
int32_t CPenUpdater::NotifyError(InsResCode code) {
  if (!m_callback) return 1;
  PenUpdateProgressCallbackInfo info = DescribePackage();
  info.result = code;
  info.propertyCount = static_cast<int32_t>(m_curProperties.size());
  return CallHost(m_penHandle, info);
}

// 0 when the host skips the failure, else what the run ends with.
InsResCode CPenUpdater::AskToSkip(InsResCode code) {
  if (NotifyError(code) == 0) return insSuccess;
  return m_hostThrew ? insAborted : code;
}

// A callback that lets an exception escape counts as one that asks to stop: the exception reaches neither the pen
// library nor the caller.
int32_t CPenUpdater::CallHost(int32_t penHandle, const PenUpdateProgressCallbackInfo& info) {
  try {
    return m_callback(penHandle, &info, m_userData);
  } catch (...) {
    m_hostThrew = true;
    m_abort = true;
    return 1;
  }
}
