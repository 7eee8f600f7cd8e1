// What a bundle's manifest says: groups of packages, each package one file. Plain records with value semantics; a
// package points at its group and at its signature record, so the lists are not resized once they are filled.
#ifndef QUARVEL_INSTALLER_BUNDLE_BUNDLEMODEL_H
#define QUARVEL_INSTALLER_BUNDLE_BUNDLEMODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/PenletAttribute.h"

struct BundleFileDRMInfo;
struct BundleGroup;

// The kind of a package, from the text of its FileType.
enum BndPakTypes : int32_t {
  BndPakUnknown = 0,
  BndPakFirmware = 1,
  BndPakPenApp = 2,
  BndPakPaperProduct = 3,
};

// Numbers of the attributes that a pen keeps with an application.
enum PenletAttributeId : int32_t {
  kAttribGroupCategory = 1,
  kAttribGroupName = 2,
  kAttribGroupVersion = 3,
  kAttribGroupLocked = 4,   // "true" or "false"
  kAttribGroupPrivate = 5,  // "true" or "false"
  kAttribPackageName = 6,
  kAttribPackageVersion = 7,
};

struct BundlePackageProperty {
  std::string name;
  std::string value;
};

struct BundlePackage {
  std::string name;
  std::string bundlePath;  // group folder, "/", file name, as written: the key of the signature record
  std::string localPath;   // the extracted file, with "/" throughout
  std::string guid;
  std::string version;
  std::string action;
  std::string fileType;
  BndPakTypes type = BndPakUnknown;
  int32_t transferOrder = 0;
  int32_t fileSize = 0;  // bytes of the extracted file (low 32 bits), 0 when it is missing
  int32_t buildNumber = 0;
  std::vector<BundlePackageProperty> properties;
  BundleFileDRMInfo* drmInfo = nullptr;  // the bundle's own record, null without an entry
  BundleGroup* group = nullptr;
  uint32_t attribCount = 0;
  PenletAttribute attribs[2] = {};
};

struct BundleGroup {
  std::string name;
  std::string description;
  std::string category;
  std::string version;
  std::string locale;
  std::string folder;
  bool isSystem = false;
  bool isLocked = false;
  bool isPrivate = false;
  std::vector<int32_t> penTypes;  // 0 in the list stands for every pen type; an empty list matches none
  std::vector<BundlePackage> packages;
  uint32_t attribCount = 0;
  PenletAttribute attribs[5] = {};
};

#endif
