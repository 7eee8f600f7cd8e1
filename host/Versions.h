// What this program is and runs with.
#ifndef QUARVEL_HOST_VERSIONS_H
#define QUARVEL_HOST_VERSIONS_H

#include <string>

std::string LibraryVersion();

#endif
