// What a run does: the call of the library, and what its reports are judged by. A value, shared by the runs of one
// command; what it calls with (a loaded bundle, a configuration) lives as long as it does.
#ifndef QUARVEL_DESK_JOB_H
#define QUARVEL_DESK_JOB_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "desk/LoadedBundle.h"
#include "desk/PackageList.h"
#include "desk/PenList.h"
#include "installer/QuarvelPublic.h"

struct Job {
  std::string command;  // "install" or "remove"
  std::string bundle;   // its file; empty in a removal
  std::string group;
  bool removes = false;
  bool firmware = false;      // firmware may be installed, so that the pen may leave the bus
  bool forced = false;        // nothing is compared with what the pen holds
  std::string function = "";  // the exported function, as the log names it
  // Takes the pen's handle, which it may change, and the callback with its user data.
  std::function<InsResCode(int32_t* penHandle, PenUpdateProgressCallback callback, void* userData)> call;
  // The packages that an install comes to on this pen when nothing stops it, where that is known.
  std::function<std::vector<PackageRow>(const Pen& pen)> expect;
};

Job InstallJob(std::string bundleFile, std::shared_ptr<const LoadedBundle> bundle,
               std::shared_ptr<const Configuration> configuration);
Job RemovalJob(std::string group);

#endif
