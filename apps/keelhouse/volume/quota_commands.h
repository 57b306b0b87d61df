// `keelhouse quota`: the user quotas of a volume.
#pragma once

#include <string>
#include <vector>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// Volumes, by the folders on which they are mounted.

// The mount point of the volume that `path`, an absolute one, lies on: itself when it is one.
// Throws Failure when it cannot be found out, as for a path that is not there.
std::string volumeRootOf(const std::string& path);

// Throws Failure, naming the volume's root, unless `path` is one.
void requireVolumeRoot(const std::string& path);

// Volumes are the folders on which they are mounted, as they were typed. Each throws Failure for
// what it cannot do, also for a folder that is no volume's root.
ExitStatus showQuotas(const Session& session, const std::string& volume);
ExitStatus switchQuotasOn(const Session& session, const std::string& volume);
ExitStatus switchQuotasOff(const Session& session, const std::string& volume);

struct LimitWords {
  std::string volume;
  std::string name;
  bool isGroup = false;
  std::string soft;
  std::string hard;
  std::vector<std::string> files;  // soft and hard, or nothing
};
// Prints the limits as the kernel has them afterwards. Throws usage for a word that is no amount.
ExitStatus setLimits(const Session& session, const LimitWords& words);

}  // namespace paddock::keelhouse
