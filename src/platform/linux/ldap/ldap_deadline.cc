#include "platform/linux/ldap/ldap_deadline.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "base/system_call.h"

namespace paddock {

namespace {

// Between the socket and TLS.
constexpr int kLevel = (LBER_SBIOD_LEVEL_PROVIDER + LBER_SBIOD_LEVEL_TRANSPORT) / 2;

}  // namespace

bool LdapDeadline::addTo(Sockbuf* connection, int descriptor, std::chrono::milliseconds patience) {
  static Sockbuf_IO layer{&LdapDeadline::setUp,   [](Sockbuf_IO_Desc*) { return 0; },
                          &LdapDeadline::control, &LdapDeadline::read,
                          &LdapDeadline::write,   [](Sockbuf_IO_Desc*) { return 0; }};
  descriptor_ = descriptor;
  patience_ = patience;
  return ber_sockbuf_add_io(connection, &layer, kLevel, this) == 0;
}

void LdapDeadline::set(std::chrono::milliseconds time) {
  step_ = Clock::now() + time;
  hasExpired_ = false;
}

void LdapDeadline::count(std::shared_ptr<LdapAllowance> allowance) {
  allowance_ = std::move(allowance);
  hasExpired_ = false;
}

LdapDeadline& LdapDeadline::of(Sockbuf_IO_Desc* layer) {
  return *static_cast<LdapDeadline*>(layer->sbiod_pvt);
}

int LdapDeadline::setUp(Sockbuf_IO_Desc* layer, void* deadline) {
  layer->sbiod_pvt = deadline;
  return 0;
}

int LdapDeadline::control(Sockbuf_IO_Desc* layer, int option, void* argument) {
  return LBER_SBIOD_CTRL_NEXT(layer, option, argument);
}

ber_slen_t LdapDeadline::read(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size) {
  LdapDeadline& self = of(layer);
  const ber_slen_t count =
      self.perform(POLLIN, [&] { return LBER_SBIOD_READ_NEXT(layer, buffer, size); });
  if (count <= 0 || !self.allowance_ || self.allowance_->spend(static_cast<std::size_t>(count)))
    return count;
  errno = EMSGSIZE;
  return -1;
}

ber_slen_t LdapDeadline::write(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size) {
  return of(layer).perform(POLLOUT, [&] { return LBER_SBIOD_WRITE_NEXT(layer, buffer, size); });
}

std::optional<LdapDeadline::Clock::time_point> LdapDeadline::end() const {
  if (!allowance_) return step_;
  return step_ ? std::min(*step_, allowance_->end()) : allowance_->end();
}

template <typename Step>
ber_slen_t LdapDeadline::perform(short event, Step step) {
  const auto last = end();
  if (!last) return step();
  for (;;) {
    // A server that sends without a pause is always ready.
    const int ready = Clock::now() < *last ? await(event, *last) : 0;
    if (ready < 0) return -1;
    if (ready == 0) break;
    const ber_slen_t count = step();
    if (count >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) return count;
  }
  hasExpired_ = true;
  errno = ETIMEDOUT;
  return -1;
}

int LdapDeadline::await(short event, Clock::time_point end) const {
  const auto left =
      std::min(patience_, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
  pollfd awaited{descriptor_, event, 0};
  const int time = static_cast<int>(std::max<std::int64_t>(0, left.count()));
  return retryOnInterrupt([&] { return ::poll(&awaited, 1, time); });
}

}  // namespace paddock
