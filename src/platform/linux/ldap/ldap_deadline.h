// A layer of a connection of libldap, below TLS, in which nothing waits longer than it may, and in
// which every byte is counted: the library itself goes on with a TLS handshake or record until the
// server has sent it.
#pragma once

#include <lber.h>

#include <chrono>
#include <memory>
#include <optional>

#include "platform/linux/ldap/ldap_allowance.h"

namespace paddock {

class LdapDeadline {
 public:
  // Puts the layer on the connection, whose descriptor this is and which must not outlive this
  // object; whether that was done. Nothing waits longer than `patience` for one step.
  bool addTo(Sockbuf* connection, int descriptor, std::chrono::milliseconds patience);

  // From now on, reading and writing fail with ETIMEDOUT beyond this time; until `release`.
  void set(std::chrono::milliseconds time);
  void release() { step_.reset(); }
  // From now on they also fail with ETIMEDOUT beyond the end of the allowance, and with EMSGSIZE
  // when it is spent; until it is replaced. Null: nothing is counted.
  void count(std::shared_ptr<LdapAllowance> allowance);
  // Whether something has failed with ETIMEDOUT since the last `set` or `count`.
  bool hasExpired() const { return hasExpired_; }

 private:
  using Clock = LdapAllowance::Clock;

  static LdapDeadline& of(Sockbuf_IO_Desc* layer);
  static int setUp(Sockbuf_IO_Desc* layer, void* deadline);
  static int control(Sockbuf_IO_Desc* layer, int option, void* argument);
  static ber_slen_t read(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size);
  static ber_slen_t write(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size);

  // Absent: there is none.
  std::optional<Clock::time_point> end() const;
  // Calls `step` until it is done or the time is over.
  template <typename Step>
  ber_slen_t perform(short event, Step step);
  // Positive when the descriptor became ready for the event, 0 when it did not in time, negative
  // for an error (errno).
  int await(short event, Clock::time_point end) const;

  int descriptor_ = -1;
  std::chrono::milliseconds patience_{0};
  std::optional<Clock::time_point> step_;
  std::shared_ptr<LdapAllowance> allowance_;
  bool hasExpired_ = false;
};

}  // namespace paddock
