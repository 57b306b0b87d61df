// The event loop of Avahi's client library, on a thread of its own.
//
// Its lock is held around every call of the library, and is held while the library calls back; it
// meets the BasicLockable requirements. See avahi-common/thread-watch.h.
#pragma once

#include <avahi-common/thread-watch.h>

#include <memory>

namespace paddock::dns_sd {

class AvahiPollThread {
 public:
  // Throws std::runtime_error when there can be no thread.
  AvahiPollThread();
  AvahiPollThread(const AvahiPollThread&) = delete;
  AvahiPollThread& operator=(const AvahiPollThread&) = delete;
  // Waits for a callback that runs. Not with the lock held, nor from a callback.
  ~AvahiPollThread();

  void lock();
  void unlock();

  const AvahiPoll* api();

 private:
  struct Free {
    void operator()(AvahiThreadedPoll* poll) const { avahi_threaded_poll_free(poll); }
  };
  std::unique_ptr<AvahiThreadedPoll, Free> poll_;
};

}  // namespace paddock::dns_sd
