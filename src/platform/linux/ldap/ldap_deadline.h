// A layer of a connection of libldap, below TLS, in which nothing waits longer than it may: the
// library itself goes on with a TLS handshake until the server answers.
#pragma once

#include <lber.h>

#include <chrono>

namespace paddock {

class LdapDeadline {
 public:
  // Puts the layer on the connection, which must not outlive this object; whether that was done.
  bool addTo(Sockbuf* connection);

  // From now on, reading and writing fail with ETIMEDOUT when they would have to wait beyond this
  // time; until `release`.
  void set(std::chrono::milliseconds time);
  void release() { isSet_ = false; }
  // Whether something has failed so since `set`.
  bool hasExpired() const { return hasExpired_; }

 private:
  using Clock = std::chrono::steady_clock;

  static LdapDeadline& of(Sockbuf_IO_Desc* layer);
  static int setUp(Sockbuf_IO_Desc* layer, void* deadline);
  static int control(Sockbuf_IO_Desc* layer, int option, void* argument);
  static ber_slen_t read(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size);
  static ber_slen_t write(Sockbuf_IO_Desc* layer, void* buffer, ber_len_t size);

  // Calls `step` until it is done or the time is over.
  template <typename Step>
  ber_slen_t perform(Sockbuf_IO_Desc* layer, short event, Step step);
  // Positive when the descriptor became ready for the event, 0 when it did not in time, negative
  // for an error (errno).
  int await(Sockbuf_IO_Desc* layer, short event);

  bool isSet_ = false;
  bool hasExpired_ = false;
  Clock::time_point end_;
};

}  // namespace paddock
