#include "desk/Job.h"

Job InstallJob(std::string bundleFile, std::shared_ptr<const LoadedBundle> bundle,
               std::shared_ptr<const Configuration> configuration) {
  Job job;
  job.command = "install";
  job.bundle = std::move(bundleFile);
  job.group = configuration->Group();
  job.firmware = configuration->TakesFirmware();
  job.forced = ((**configuration).flags & insFlagForce) != 0;
  job.function = "insStartInstall";
  job.call = [bundle = std::move(bundle), configuration = std::move(configuration)](
                 int32_t* penHandle, PenUpdateProgressCallback callback, void* userData) {
    return insStartInstall(penHandle, bundle->Handle(), &**configuration, callback, userData);
  };
  return job;
}

Job RemovalJob(std::string group) {
  Job job;
  job.command = "remove";
  job.group = group;
  job.removes = true;
  job.function = "insRemoveGroup";
  job.call = [group = std::move(group)](int32_t* penHandle, PenUpdateProgressCallback callback, void* userData) {
    return insRemoveGroup(*penHandle, group.c_str(), callback, userData);
  };
  return job;
}
