// Keeps a write to a broken connection from ending the process, where a library writes without
// MSG_NOSIGNAL and the program has not switched the signal off.
#pragma once

#include <csignal>

namespace paddock {

// For the calling thread and the guard's lifetime; a signal raised in between is discarded.
class BlockedSigpipe {
 public:
  BlockedSigpipe();
  BlockedSigpipe(const BlockedSigpipe&) = delete;
  BlockedSigpipe& operator=(const BlockedSigpipe&) = delete;
  ~BlockedSigpipe();

 private:
  sigset_t before_{};
  bool wasPending_ = false;
};

}  // namespace paddock
