// Volumes, by the folders on which they are mounted.
#pragma once

#include <string>

namespace paddock::keelhouse {

// The mount point of the volume that `path`, an absolute one, lies on: itself when it is one.
// Throws Failure when it cannot be found out, as for a path that is not there.
std::string volumeRootOf(const std::string& path);

// Throws Failure, naming the volume's root, unless `path` is one.
void requireVolumeRoot(const std::string& path);

}  // namespace paddock::keelhouse
