// Follows a run that pushes privileges down a folder, by way of the daemon.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "base/value.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// A run as the daemon names it.
struct FollowedRun {
  std::string path;
  std::int64_t process = 0;
  std::string statusFile;
};

struct FollowTimes {
  std::chrono::milliseconds firstPause{20};
  std::chrono::milliseconds longestPause{500};
  // How long requests to a daemon that does not respond are retried.
  std::chrono::milliseconds patience{60000};
  // How long a run without a process may report nothing new.
  std::chrono::milliseconds silence{5000};
};

// Shows the progress until the run has completed, and gives the last status. Throws Failure when
// the daemon does not answer for too long or has forgotten the run, when the program ended without
// a final status, and at the interrupt key; the run continues then.
Dictionary followRun(const Session& session, const FollowedRun& run, const FollowTimes& times = {});

}  // namespace paddock::keelhouse
