// The signature manifest "bom.xml": who signed which file, and the signatures.
#include "Common/FileUtil.h"
#include "Common/Logger_mac.h"
#include "Common/StringUtil.h"
#include "Common/Xml.h"
#include "installer/bundle/Bundle.h"

namespace {

// Where a file lies inside the bundle, as packages name it: single backslashes stay as they are.
std::string KeyOf(const std::string& folder, const std::string& name) {
  std::string key = name;
  if (!folder.empty() && folder != "/" && folder != "\\") {
    key = folder + "/" + key;
    if (key.find("//") != std::string::npos) key = CStringUtil::ReplaceAll(key, "//", "/");
    if (key.find("\\\\") != std::string::npos) key = CStringUtil::ReplaceAll(key, "\\\\", "/");
  }
  CStringUtil::ToLower(key);
  return key;
}

// Null when the text cannot be read.
std::shared_ptr<const CertSubject> SubjectOf(const std::string& text) {
  auto subject = std::make_shared<CertSubject>();
  if (!CVerifier::LoadSubject(*subject, text.c_str())) return nullptr;
  return subject;
}

}  // namespace

InsResCode CBundle::LoadDRM() {
  m_drmInfos.clear();
  Z<char> text(0);
  size_t size = 0;
  const InsResCode read = ReadManifest("LoadDRM", "bom.xml", text, &size);
  if (read != insSuccess) return read;
  XML document;
  if (size > 0) document.LoadText(std::move(text));
  XMLElement* root = document.HasDefaultRoot() ? nullptr : document.GetRootElement();
  if (!root) {
    g_Logger.LogEvent("LoadDRM", "Not found BOM root element");
    return insBadManifest;
  }

  XMLElement* const* entries = root->GetChildren();
  std::string name;
  std::string folder;
  const BundleFileDRMInfo* latest = nullptr;
  for (unsigned i = 0; i < root->GetChildrenNum(); ++i) {
    if (!entries[i]->GetVariable("name", name)) continue;
    BundleFileDRMInfo info;
    if (entries[i]->GetVariable("subject", info.subjectText)) {
      // Mostly one signer signs it all.
      const bool isSame = latest && latest->subject && latest->subjectText == info.subjectText;
      info.subject = isSame ? latest->subject : SubjectOf(info.subjectText);
      if (!info.subject) {
        g_Logger.LogEvent("LoadDRM", "Unable to load signature of file %s", name.c_str());
        return insBadSubject;
      }
    }
    entries[i]->GetVariable("signature", info.signature);
    folder.clear();
    entries[i]->GetVariable("folder", folder);
    // Mostly the files stand in the order of their keys.
    latest = &m_drmInfos.insert_or_assign(m_drmInfos.end(), KeyOf(folder, name), std::move(info))->second;
  }
  return insSuccess;
}

BundleFileDRMInfo* CBundle::GetDRMInfo(std::string path) {
  CStringUtil::ToLower(path);
  auto found = m_drmInfos.find(path);
  if (found == m_drmInfos.end()) found = m_drmInfos.find(CFileUtil::GetFileName(path.c_str()));
  return found == m_drmInfos.end() ? nullptr : &found->second;
}
