// The process groups of the programs that are being waited for, and the requests that wait.
//
// A program is registered under the same lock under which it is started, so that no lookup misses a
// running program. It is unregistered before it is reaped: until then its pid cannot be reused.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "paddock/run_program.h"

namespace paddock {

class ProgramRegistry {
 public:
  // Calls `start`, which returns the new program's process group, or 0 when none was started.
  void startAndRegister(const std::string& request, const std::function<pid_t()>& start);
  void forget(pid_t group);
  // The request of the registered group that `process` is in; nullopt when it is in none.
  std::optional<std::string> requestOf(pid_t process) const;

 private:
  mutable Mutex mutex_;
  std::map<pid_t, std::string> requests_ PADDOCK_GUARDED_BY(mutex_);  // by process group
};

// runProgram with a time limit of its own.
ProgramResult runProgramWithin(const std::string& path, const std::vector<std::string>& arguments,
                               std::chrono::milliseconds limit);

}  // namespace paddock
