// How many connections there may be, altogether and per user.
//
// A connection takes a place. One that finds no free place may still wait for its request, to
// be told so: a limited number of those, too. Programs that the daemon itself is waiting for are
// never counted.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <mutex>

namespace paddock {

class ConnectionLimits {
 public:
  ConnectionLimits(std::size_t connections, std::size_t perUser, std::size_t waiting)
      : connections_(connections), perUser_(perUser), waiting_(waiting) {}

  // For places that are taken from now on; connections that have one keep it.
  void change(std::size_t connections, std::size_t perUser);

  // Takes a place; false when there is none for this user.
  bool take(uid_t user);
  void giveBack(uid_t user);

  // The same for the connections that will be refused.
  bool takeWaiting();
  void giveBackWaiting();

 private:
  std::size_t connections_;
  std::size_t perUser_;
  const std::size_t waiting_;
  std::mutex mutex_;
  std::size_t taken_ = 0;
  std::size_t takenWaiting_ = 0;
  std::map<uid_t, std::size_t> users_;
};

// What one connection has taken, given back at its end.
class ConnectionPlace {
 public:
  ConnectionPlace(ConnectionLimits& limits, uid_t user) : limits_(limits), user_(user) {}
  ConnectionPlace(const ConnectionPlace&) = delete;
  ConnectionPlace& operator=(const ConnectionPlace&) = delete;
  ~ConnectionPlace();

  // Takes a place when this connection has none yet; whether it has one now.
  bool take();
  // Takes a waiting place; whether there was one.
  bool wait();

 private:
  ConnectionLimits& limits_;
  uid_t user_;
  bool taken_ = false;
  bool waiting_ = false;
};

}  // namespace paddock
