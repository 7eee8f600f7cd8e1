// Which packages go onto a pen: functions of what the pen holds and what the bundle offers, and of nothing else. The
// updater acts on them; the author's tool explains a bundle with them.
#ifndef QUARVEL_INSTALLER_UPDATER_INSTALLDECISIONS_H
#define QUARVEL_INSTALLER_UPDATER_INSTALLDECISIONS_H

#include <string>
#include <vector>

#include "installer/bundle/BundleModel.h"
#include "installer/updater/PenContents.h"

// Why a package is installed or skipped.
enum class InstallReason {
  kNotCompared,    // install: a kind that has no version on a pen
  kNotOnPen,       // install
  kOtherGroup,     // install: the pen has it under another group name
  kNewerVersion,   // install
  kSameFirmware,   // skip
  kOlderFirmware,  // skip
  kOlderGroup,     // skip: the pen's group version is newer
  kSameVersion,    // skip
  kOlderVersion,   // skip
};

// What the run remembers of a package, for the steps after the transfers.
enum class InstallRecord {
  kNothing,
  kPackage,    // it is installed
  kGroupOnly,  // it stays as it is, but its group's version is raised
};

struct InstallDecision {
  InstallReason reason;
  InstallRecord record;

  bool Installs() const { return reason <= InstallReason::kNewerVersion; }
};

// The kinds that a pen keeps with a version and a group.
bool LivesOnPen(const BundlePackage& package);

// Judges one package of a bundle. The package's group must be set.
InstallDecision DecideInstall(const BundlePackage& package, const PenContents& pen);

// The log's words for a package that is skipped; empty for one that is installed.
std::string DescribeSkip(const InstallDecision& decision, const BundlePackage& package, const PenContents& pen);

// Whether at least one of the packages would bring something new.
bool NeedToUpdate(const std::vector<BundlePackage*>& packages, const PenContents& pen);

#endif
