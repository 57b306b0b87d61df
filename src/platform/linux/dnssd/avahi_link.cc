#include "platform/linux/dnssd/avahi_link.h"

#include <avahi-common/error.h>

#include <stdexcept>
#include <utility>

#include "platform/logger.h"

namespace paddock::dns_sd {

AvahiLink::AvahiLink(DnsSdLog& log, BackOff pauses, std::function<void()> changed)
    : log_(log), pauses_(pauses), changed_(std::move(changed)) {}

AvahiPollThread* AvahiLink::pollThread() {
  if (poll_) return &*poll_;
  try {
    return &poll_.emplace();
  } catch (const std::runtime_error& error) {
    pauseAfter(error.what());
    return nullptr;
  }
}

void AvahiLink::connect(Time now) {
  if (connection_ || now < retry_) return;
  connection_.emplace(poll_->api(), changed_);
  if (connection_->state() == AVAHI_CLIENT_CONNECTING)
    log_.warnOnce("Nothing can be advertised on the network before the Avahi daemon runs");
}

AvahiClientState AvahiLink::state() const {
  return connection_ ? connection_->state() : AVAHI_CLIENT_FAILURE;
}

void AvahiLink::drop(int error) {
  if (connection_->state() == AVAHI_CLIENT_FAILURE) error = connection_->error();
  connection_.reset();
  pauseAfter(avahi_strerror(error));
}

void AvahiLink::noteRunning() {
  pauses_.reset();
  if (log_.troubleIsOver()) log_.log(kLogInformation, "The Avahi daemon is there");
}

// Begins now: the try itself may have taken longer than the pause.
void AvahiLink::pauseAfter(const std::string& reason) {
  retry_ = std::chrono::steady_clock::now() + pauses_.pause();
  log_.warnOnce("The Avahi daemon cannot be reached, and is tried again: " + reason);
}

void DnsSdLog::log(int priority, const std::string& text) {
  const MutexLock lock(mutex_);
  if (logger_ != nullptr) logger_->log(priority, "paddock_sharing: " + text);
}

void DnsSdLog::close() {
  const MutexLock lock(mutex_);
  logger_ = nullptr;
}

void DnsSdLog::warnOnce(const std::string& text) {
  if (warned_.insert(text).second) log(kLogWarning, text);
}

bool DnsSdLog::troubleIsOver() { return !std::exchange(warned_, {}).empty(); }

}  // namespace paddock::dns_sd
