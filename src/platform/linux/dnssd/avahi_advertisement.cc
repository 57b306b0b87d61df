#include "platform/linux/dnssd/avahi_advertisement.h"

#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>

#include <memory>
#include <new>

#include "platform/linux/dnssd/avahi_connection.h"

namespace paddock::dns_sd {

namespace {

// RFC 6762, section 8.1: after fifteen conflicts in short time, five seconds before each new try.
constexpr int kCollisionsAtOnce = 15;
constexpr std::chrono::seconds kPause{5};

struct FreeText {
  void operator()(char* text) const { avahi_free(text); }
};

std::string alternativeTo(const std::string& name) {
  const std::unique_ptr<char, FreeText> text(avahi_alternative_service_name(name.c_str()));
  if (!text) throw std::bad_alloc();
  return text.get();
}

// Another connection is needed after these, as when the daemon does not answer.
bool isOfConnection(int error) {
  switch (error) {
    case AVAHI_ERR_DISCONNECTED:
    case AVAHI_ERR_DBUS_ERROR:
    case AVAHI_ERR_NO_DAEMON:
    case AVAHI_ERR_TIMEOUT:
    case AVAHI_ERR_BAD_STATE:
    case AVAHI_ERR_INVALID_OBJECT:
      return true;
    default:
      return false;
  }
}

}  // namespace

AvahiAdvertisement::AvahiAdvertisement(ServiceDescription description,
                                       std::function<void()> changed)
    : description_(std::move(description)), changed_(std::move(changed)) {}

AvahiAdvertisement::State AvahiAdvertisement::maintain(AvahiConnection& connection, const Data& txt,
                                                       Time now) {
  if (refused_ && txt == txt_) return State::refused;
  refused_ = false;
  if (!followHostName(connection)) return failed(AVAHI_ERR_DISCONNECTED);
  if (entry_ && entry_->state() == AVAHI_ENTRY_GROUP_FAILURE) return failed(entry_->error());
  if (entry_ && entry_->state() == AVAHI_ENTRY_GROUP_COLLISION) takeNextName(now);
  // The daemon takes its own earlier probe for another host's when the record changes in between.
  if (entry_ && entry_->state() != AVAHI_ENTRY_GROUP_ESTABLISHED) return State::pending;
  if (!entry_ || txt != txt_) return update(txt, connection, now);
  collisions_ = 0;
  return State::published;
}

void AvahiAdvertisement::withdraw() {
  entry_.reset();
  refused_ = false;
}

void AvahiAdvertisement::forget() {
  if (entry_) entry_->forget();
  withdraw();
}

// False when the daemon does not say it.
bool AvahiAdvertisement::followHostName(AvahiConnection& connection) {
  const auto host = connection.fullHostName();
  const auto label = connection.hostName();
  if (!host || !label) return false;
  // The daemon leaves the services of a host that was renamed at its old name.
  if (host_ != *host) entry_.reset();
  host_ = *host;
  const std::string& base = description_.name.empty() ? *label : description_.name;
  if (base_ != base) name_ = base_ = base;
  return true;
}

AvahiAdvertisement::State AvahiAdvertisement::update(const Data& txt, AvahiConnection& connection,
                                                     Time now) {
  txt_ = txt;
  if (entry_) {
    const int error = entry_->setTxt(txt_);
    if (error == 0) return State::pending;
    if (isOfConnection(error)) return failed(error);
    entry_.reset();
  }
  return establish(connection, now);
}

AvahiAdvertisement::State AvahiAdvertisement::establish(AvahiConnection& connection, Time now) {
  while (!notBefore_ || *notBefore_ <= now) {
    notBefore_.reset();
    entry_.emplace(description_, name_, changed_);
    const int error = entry_->publish(connection, txt_);
    if (error == 0) return State::pending;
    if (error != AVAHI_ERR_COLLISION) return failed(error);
    takeNextName(now);
  }
  return State::pending;
}

void AvahiAdvertisement::takeNextName(Time now) {
  entry_.reset();
  name_ = alternativeTo(name_);
  if (++collisions_ >= kCollisionsAtOnce) notBefore_ = now + kPause;
}

AvahiAdvertisement::State AvahiAdvertisement::failed(int error) {
  entry_.reset();
  error_ = error;
  if (isOfConnection(error)) return State::disconnected;
  refused_ = true;
  return State::refused;
}

}  // namespace paddock::dns_sd
