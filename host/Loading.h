// Loading a bundle, which takes long for a large one: a moving line tells that it goes on.
#ifndef QUARVEL_HOST_LOADING_H
#define QUARVEL_HOST_LOADING_H

#include <memory>
#include <string>

#include "desk/LoadedBundle.h"
#include "host/Session.h"

// Throws what LoadedBundle throws.
std::shared_ptr<const LoadedBundle> LoadTelling(const Session& session, const std::string& file,
                                                const Configuration& configuration);

#endif
