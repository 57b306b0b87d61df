#include "hostlib/program_registry.h"

#include <unistd.h>

namespace paddock {

void ProgramRegistry::startAndRegister(const std::string& request,
                                       const std::function<pid_t()>& start) {
  const std::scoped_lock lock(mutex_);
  const pid_t group = start();
  if (group > 0) requests_.insert_or_assign(group, request);
}

void ProgramRegistry::forget(pid_t group) {
  const std::scoped_lock lock(mutex_);
  requests_.erase(group);
}

std::optional<std::string> ProgramRegistry::requestOf(pid_t process) const {
  if (process <= 0) return std::nullopt;
  const std::scoped_lock lock(mutex_);
  if (requests_.empty()) return std::nullopt;
  const auto found = requests_.find(::getpgid(process));
  return found != requests_.end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace paddock
