#include "platform/linux/dnssd/avahi_poll_thread.h"

#include <stdexcept>

namespace paddock::dns_sd {

AvahiPollThread::AvahiPollThread() : poll_(avahi_threaded_poll_new()) {
  if (!poll_ || avahi_threaded_poll_start(poll_.get()) < 0)
    throw std::runtime_error("the thread for Avahi cannot be started");
}

AvahiPollThread::~AvahiPollThread() { avahi_threaded_poll_stop(poll_.get()); }

void AvahiPollThread::lock() { avahi_threaded_poll_lock(poll_.get()); }
void AvahiPollThread::unlock() { avahi_threaded_poll_unlock(poll_.get()); }

const AvahiPoll* AvahiPollThread::api() { return avahi_threaded_poll_get(poll_.get()); }

}  // namespace paddock::dns_sd
