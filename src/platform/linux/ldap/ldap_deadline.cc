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

bool LdapDeadline::addTo(Sockbuf* connection) {
  static Sockbuf_IO layer{&LdapDeadline::setUp,   [](Sockbuf_IO_Desc*) { return 0; },
                          &LdapDeadline::control, &LdapDeadline::read,
                          &LdapDeadline::write,   [](Sockbuf_IO_Desc*) { return 0; }};
  return ber_sockbuf_add_io(connection, &layer, kLevel, this) == 0;
}

void LdapDeadline::set(std::chrono::milliseconds time) {
  end_ = Clock::now() + time;
  hasExpired_ = false;
  isSet_ = true;
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
  return of(layer).perform(layer, POLLIN,
                           [&] { return LBER_SBIOD_READ_NEXT(layer, buffer, size); });
}

ber_slen_t LdapDeadline::write(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size) {
  return of(layer).perform(layer, POLLOUT,
                           [&] { return LBER_SBIOD_WRITE_NEXT(layer, buffer, size); });
}

template <typename Step>
ber_slen_t LdapDeadline::perform(Sockbuf_IO_Desc* layer, short event, Step step) {
  for (;;) {
    if (isSet_ && Clock::now() >= end_) break;
    const ber_slen_t count = step();
    const bool wouldWait = count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    if (!isSet_ || !wouldWait) return count;
    const int ready = await(layer, event);
    if (ready < 0) return -1;
    if (ready == 0) break;
  }
  hasExpired_ = true;
  errno = ETIMEDOUT;
  return -1;
}

int LdapDeadline::await(Sockbuf_IO_Desc* layer, short event) {
  ber_socket_t descriptor = -1;
  if (ber_sockbuf_ctrl(layer->sbiod_sb, LBER_SB_OPT_GET_FD, &descriptor) != 1) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
  pollfd awaited{descriptor, event, 0};
  const int time = static_cast<int>(std::max<std::int64_t>(0, left.count()));
  return retryOnInterrupt([&] { return ::poll(&awaited, 1, time); });
}

}  // namespace paddock
