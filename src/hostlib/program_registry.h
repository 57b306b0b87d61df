// The process groups of the programs that are being waited for, and the requests that wait.
//
// A program is registered under the same lock under which it is started, so that nobody who
// asks sees a program that runs and is not known. It is forgotten before it is reaped: until
// then its number cannot belong to anybody else.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace paddock {

class ProgramRegistry {
 public:
  // Calls `start`, which gives the new program's process group, or 0 when none was started.
  void startAndRegister(const std::string& request, const std::function<pid_t()>& start);
  void forget(pid_t group);
  // The request of the registered group that `process` is in; absent when it is in none.
  std::optional<std::string> requestOf(pid_t process) const;

 private:
  mutable std::mutex mutex_;
  std::map<pid_t, std::string> requests_;  // by process group
};

}  // namespace paddock
