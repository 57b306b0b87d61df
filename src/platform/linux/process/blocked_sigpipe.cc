#include "platform/linux/process/blocked_sigpipe.h"

#include <cerrno>
#include <ctime>

namespace paddock {

namespace {

sigset_t onlySigpipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool isPending() {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

BlockedSigpipe::BlockedSigpipe() : wasPending_(isPending()) {
  const sigset_t set = onlySigpipe();
  pthread_sigmask(SIG_BLOCK, &set, &before_);
}

BlockedSigpipe::~BlockedSigpipe() {
  const int number = errno;
  if (!wasPending_ && isPending()) {
    const sigset_t set = onlySigpipe();
    const timespec now{};
    static_cast<void>(sigtimedwait(&set, nullptr, &now));
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = number;
}

}  // namespace paddock
