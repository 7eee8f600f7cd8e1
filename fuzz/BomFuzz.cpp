// The signature manifest "bom.xml", read as part of a bundle, and look-ups in it.
#include "fuzz/FuzzBundle.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzBundle file(
      "<UPDATE><GroupList><G><FileList><P><FileName>a.bin</FileName></P></FileList></G></GroupList></UPDATE>",
      TextOf(data, size));
  CBundle& bundle = file.bundle();
  const InsResCode result = file.result();
  FUZZ_CHECK(result == insSuccess || result == insBadManifest || result == insBadSubject);
  if (result != insSuccess) return 0;
  const BundleFileDRMInfo* const info = bundle.GetDRMInfo("FILES/A.bin");
  FUZZ_CHECK(bundle.groups().at(0).packages.at(0).drmInfo == info);
  FUZZ_CHECK(bundle.VerifyUpdateXML() == (bundle.GetDRMInfo("update.xml") ? insNotVerified : insNoSignature));
  return 0;
}
