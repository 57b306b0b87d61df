// The configuration that is in force, and what its file says that is not.
//
// Some keys can change while the daemon runs: who may call, the limits, and what plug-ins read anew
// each time ([access], [audit], [limits], [vsp], [nfs]). What the other keys say decides how
// services are made at start, and takes a restart. A file in which something is wrong changes
// nothing. Any thread may ask; one at a time reads again.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "configuration/configuration.h"

namespace paddock {

// How the file compares with what is in force, as it was when it was last read.
struct ConfigurationState {
  std::string file;
  std::chrono::system_clock::time_point read;  // when that was
  std::vector<std::string> problems;         // "PATH:LINE: TEXT"; with one, nothing was taken over
  std::vector<std::string> applied;          // keys that were taken over by that reading
  std::vector<std::string> awaitingRestart;  // keys with another value than the one in force
};

class RunningConfiguration {
 public:
  // `read`: what was read at start from `file`, and is right. `required`: the file must be there.
  RunningConfiguration(std::string file, bool required, Configuration read);

  // Its tree has the keys that can change as they are now, and the others as they were at start.
  std::shared_ptr<const Configuration> current() const;
  ConfigurationState state() const;

  // Reads the file again.
  ConfigurationState reload();

 private:
  const std::string file_;
  const bool required_;
  const Dictionary atStart_;
  mutable std::mutex mutex_;
  std::shared_ptr<const Configuration> current_;
  ConfigurationState state_;
};

// Reads the file; one that is `required` and absent is a problem.
Configuration readConfigurationFile(const std::string& file, bool required,
                                    std::vector<ConfigurationProblem>& problems);

// The names of the keys ("limits.connections", "ldap") that differ between two trees, of the tables
// that can change while the daemon runs, or of the others.
std::vector<std::string> changedKeys(const Dictionary& before, const Dictionary& after, bool live);

}  // namespace paddock
