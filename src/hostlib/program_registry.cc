#include "hostlib/program_registry.h"

#include <unistd.h>

namespace paddock {

void ProgramRegistry::startAndRegister(const std::function<pid_t()>& start) {
  const std::scoped_lock lock(mutex_);
  const pid_t group = start();
  if (group > 0) groups_.insert(group);
}

void ProgramRegistry::forget(pid_t group) {
  const std::scoped_lock lock(mutex_);
  groups_.erase(group);
}

bool ProgramRegistry::contains(pid_t process) const {
  if (process <= 0) return false;
  const std::scoped_lock lock(mutex_);
  const pid_t group = ::getpgid(process);
  return group > 0 && groups_.contains(group);
}

}  // namespace paddock
