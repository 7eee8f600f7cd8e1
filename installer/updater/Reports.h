// What the parts of the updater share of talking to the host.
#ifndef QUARVEL_INSTALLER_UPDATER_REPORTS_H
#define QUARVEL_INSTALLER_UPDATER_REPORTS_H

#include "installer/updater/PenUpdater.h"

// Begins a run: who is told, about which bundle.
void BeginRun(UpdateRun& run, CBundle* bundle, PenUpdateProgressCallback callback, void* userData);

// Makes a package the one in hand, which the reports are about.
void TakeInHand(UpdateRun& run, BundlePackage& package);

// Calls the host. A callback that lets an exception escape counts as one that asks to stop: the exception reaches
// neither the pen library nor the caller. One that ends its thread ends it: the run is aborted on the way.
int32_t CallHost(UpdateRun& run, int32_t penHandle, const PenUpdateProgressCallbackInfo& info);

// 0 when the host skips the failure, else what the run ends with.
InsResCode AskToSkip(CPenUpdater& updater, InsResCode code);

// Reports the package in hand, which was handled, installed or not; non-zero ends the run.
InsResCode FinishPackage(CPenUpdater& updater);

#endif
