#include "daemon/http/head_deadlines.h"

#include <sys/socket.h>

namespace paddock {

void HeadDeadlines::set(int socket, Clock::time_point deadline) {
  const MutexLock lock(mutex_);
  deadlines_[socket] = deadline;
}

void HeadDeadlines::clear(int socket) {
  const MutexLock lock(mutex_);
  deadlines_.erase(socket);
}

void HeadDeadlines::endOverdue(Clock::time_point now) {
  // Under the lock, so that no reused descriptor number is shut down.
  const MutexLock lock(mutex_);
  std::erase_if(deadlines_, [now](const auto& entry) {
    if (entry.second > now) return false;
    ::shutdown(entry.first, SHUT_RDWR);
    return true;
  });
}

}  // namespace paddock
