#include "keelhouse/core/interruption.h"

#include <sys/select.h>

#include <ctime>

namespace paddock::keelhouse {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void noteInterruption(int /*number*/) { interrupted = 1; }

// Blocked except while it waits, so that none arrives between a check and the following wait.
sigset_t ownSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  return signals;
}

}  // namespace

Interruption::Interruption() {
  interrupted = 0;
  struct sigaction action {};
  action.sa_handler = noteInterruption;
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGINT, &action, &beforeInterrupt_);
  ::sigaction(SIGTERM, &action, &beforeTerminate_);
}

Interruption::~Interruption() {
  ::sigaction(SIGINT, &beforeInterrupt_, nullptr);
  ::sigaction(SIGTERM, &beforeTerminate_, nullptr);
}

bool Interruption::happened() const { return interrupted != 0; }

void Interruption::wait(std::chrono::milliseconds time) const {
  const sigset_t signals = ownSignals();
  sigset_t before;
  ::pthread_sigmask(SIG_BLOCK, &signals, &before);
  constexpr long kMilliseconds = 1000;
  constexpr long kNanoseconds = 1000000;
  const timespec limit{time.count() / kMilliseconds, time.count() % kMilliseconds * kNanoseconds};
  if (!happened()) ::pselect(0, nullptr, nullptr, nullptr, &limit, &before);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace paddock::keelhouse
