// What the programs run with.
#ifndef QUARVEL_DESK_VERSION_H
#define QUARVEL_DESK_VERSION_H

#include <string>

std::string LibraryVersion();

#endif
