// What is asked before a package is transferred: of its signature, of the pen, of the host.
#ifndef QUARVEL_INSTALLER_UPDATER_PACKAGECHECKS_H
#define QUARVEL_INSTALLER_UPDATER_PACKAGECHECKS_H

#include "installer/updater/PenUpdater.h"

// CachePenInfos as a step of a run, logged under the tag of the function that takes it.
InsResCode ReadContents(CPenUpdater& updater, int32_t channel, const char* tag);

// 0 when the package in hand may be used: its signature is good, or the host lets it pass. "Skip" skips the check, not
// the package.
InsResCode CheckSignature(CPenUpdater& updater, const char* tag);

#endif
