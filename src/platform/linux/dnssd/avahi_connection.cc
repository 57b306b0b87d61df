#include "platform/linux/dnssd/avahi_connection.h"

#include <stdexcept>

namespace paddock::dns_sd {

namespace {

std::optional<std::string> present(const char* text) {
  return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

}  // namespace

AvahiConnection::AvahiConnection(const AvahiPoll* poll, std::function<void()> changed)
    : changed_(std::move(changed)) {
  constexpr auto kFlags =
      static_cast<AvahiClientFlags>(AVAHI_CLIENT_IGNORE_USER_CONFIG | AVAHI_CLIENT_NO_FAIL);
  int error = 0;
  client_.reset(avahi_client_new(poll, kFlags, stateChanged, this, &error));
  if (client_) return;
  state_ = AVAHI_CLIENT_FAILURE;
  error_ = error;
}

std::optional<std::string> AvahiConnection::hostName() {
  return present(avahi_client_get_host_name(client_.get()));
}

std::optional<std::string> AvahiConnection::fullHostName() {
  return present(avahi_client_get_host_name_fqdn(client_.get()));
}

void AvahiConnection::stateChanged(AvahiClient* client, AvahiClientState state, void* connection) {
  auto& self = *static_cast<AvahiConnection*>(connection);
  self.state_ = state;
  if (state == AVAHI_CLIENT_FAILURE) self.error_ = avahi_client_errno(client);
  self.changed_();
}

AvahiPollThread::AvahiPollThread() : poll_(avahi_threaded_poll_new()) {
  if (!poll_ || avahi_threaded_poll_start(poll_.get()) < 0)
    throw std::runtime_error("the thread for Avahi cannot be started");
}

AvahiPollThread::~AvahiPollThread() { avahi_threaded_poll_stop(poll_.get()); }

void AvahiPollThread::lock() { avahi_threaded_poll_lock(poll_.get()); }
void AvahiPollThread::unlock() { avahi_threaded_poll_unlock(poll_.get()); }

const AvahiPoll* AvahiPollThread::api() { return avahi_threaded_poll_get(poll_.get()); }

}  // namespace paddock::dns_sd
