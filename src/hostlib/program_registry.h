// The process groups of the programs that are being waited for.
//
// A program is registered under the same lock under which it is started, so that nobody who
// asks sees a program that runs and is not known. It is forgotten before it is reaped: until
// then its number cannot belong to anybody else.
#pragma once

#include <sys/types.h>

#include <functional>
#include <mutex>
#include <set>

namespace paddock {

class ProgramRegistry {
 public:
  // Calls `start`, which gives the new program's process group, or 0 when none was started.
  void startAndRegister(const std::function<pid_t()>& start);
  void forget(pid_t group);
  // Whether `process` is in a registered group.
  bool contains(pid_t process) const;

 private:
  mutable std::mutex mutex_;
  std::set<pid_t> groups_;
};

}  // namespace paddock
