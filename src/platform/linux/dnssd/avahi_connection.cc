#include "platform/linux/dnssd/avahi_connection.h"

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

}  // namespace paddock::dns_sd
