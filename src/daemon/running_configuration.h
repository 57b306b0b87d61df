// The effective configuration, and the keys of its file that are not in effect.
//
// Some keys can change at run time: who may call, the limits, and what plug-ins read each time
// ([access], [audit], [limits], [vsp], [nfs]). The other keys determine how services are created at
// start, and require a restart. A file with errors changes nothing. Thread-safe; one thread at a
// time may reload.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "configuration/configuration.h"

namespace paddock {

// The file as of the last reading, compared with the effective configuration.
struct ConfigurationState {
  std::string file;
  std::chrono::system_clock::time_point read;  // when that was
  std::vector<std::string> problems;           // "PATH:LINE: TEXT"; with one, nothing was applied
  std::vector<std::string> applied;            // keys that were applied by that reading
  std::vector<std::string> awaitingRestart;    // keys whose value differs from the effective one
};

class RunningConfiguration {
 public:
  // `read`: the valid configuration read from `file` at start. `required`: the file must exist.
  RunningConfiguration(std::string file, bool required, Configuration read);

  // Its tree has the current values of the keys that can change, and the initial ones of the
  // others.
  std::shared_ptr<const Configuration> current() const;
  ConfigurationState state() const;

  // Reloads the file.
  ConfigurationState reload();

 private:
  const std::string file_;
  const bool required_;
  const Dictionary atStart_;
  mutable Mutex mutex_;
  std::shared_ptr<const Configuration> current_ PADDOCK_GUARDED_BY(mutex_);
  ConfigurationState state_ PADDOCK_GUARDED_BY(mutex_);
};

// Reads the file; a missing one that is `required` is a problem.
Configuration readConfigurationFile(const std::string& file, bool required,
                                    std::vector<ConfigurationProblem>& problems);

// The names of the keys ("limits.connections", "ldap") that differ between two trees, of the tables
// that can change while the daemon runs, or of the others.
std::vector<std::string> changedKeys(const Dictionary& before, const Dictionary& after, bool live);

}  // namespace paddock
