// Where a package's file lies inside its bundle's folder.
#ifndef QUARVEL_INSTALLER_BUNDLE_BUNDLEPATHS_H
#define QUARVEL_INSTALLER_BUNDLE_BUNDLEPATHS_H

#include <string>
#include <string_view>

// The path of a file below the folder, with "/" throughout: the tail of its package's local path.
std::string PathInside(std::string_view bundlePath);

// Whether it climbs out of the folder on its way. Such a path is never followed.
bool LeadsOut(std::string_view pathInside);

#endif
