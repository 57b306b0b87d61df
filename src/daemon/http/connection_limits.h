// How many connections there may be, altogether and per user.
//
// A connection takes a place. Users without rights have places of their own, few, so that they keep
// nobody else out; of the others some are kept for administrators. A connection that finds no free
// place may still wait for its request, to be told so: a limited number of those, too. Programs
// that the daemon itself is waiting for are never counted.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>

#include "daemon/audit/access_policy.h"

namespace paddock {

class ConnectionLimits {
 public:
  // Of users without rights, altogether and per user.
  static constexpr std::size_t kStrangers = 16;
  static constexpr std::size_t kStrangersPerUser = 2;
  // Of `connections`, for administrators alone; half of them when there are fewer.
  static constexpr std::size_t kKeptForAdministrators = 32;

  ConnectionLimits(std::size_t connections, std::size_t perUser, std::size_t waiting)
      : connections_(connections), perUser_(perUser), waiting_(waiting) {}

  // For places that are taken from now on; connections that have one keep it.
  void change(std::size_t connections, std::size_t perUser);

  // Takes a place; false when there is none for this user with these rights.
  bool take(uid_t user, Rights rights);
  void giveBack(uid_t user, Rights rights);

  // The same for the connections that will be refused.
  bool takeWaiting();
  void giveBackWaiting();

 private:
  using Users = std::map<uid_t, std::size_t>;

  bool hasPlaceFor(Rights rights) const;
  std::size_t& takenWith(Rights rights) { return taken_.at(static_cast<std::size_t>(rights)); }
  std::size_t takenWith(Rights rights) const { return taken_.at(static_cast<std::size_t>(rights)); }

  std::size_t connections_;
  std::size_t perUser_;
  const std::size_t waiting_;
  std::mutex mutex_;
  std::array<std::size_t, 3> taken_{};  // by rights
  std::size_t takenWaiting_ = 0;
  Users strangers_;
  Users users_;
};

// What one connection has taken, given back at its end.
class ConnectionPlace {
 public:
  ConnectionPlace(ConnectionLimits& limits, uid_t user) : limits_(limits), user_(user) {}
  ConnectionPlace(const ConnectionPlace&) = delete;
  ConnectionPlace& operator=(const ConnectionPlace&) = delete;
  ~ConnectionPlace();

  // Takes a place of those for such rights; whether this connection has one now. One that has a
  // place for other rights changes it, or keeps it when there is none.
  bool take(Rights rights);
  // For which rights it has a place; nothing: it has none.
  std::optional<Rights> rights() const { return taken_; }
  // Takes a waiting place; whether there was one.
  bool wait();

 private:
  ConnectionLimits& limits_;
  uid_t user_;
  std::optional<Rights> taken_;
  bool waiting_ = false;
};

}  // namespace paddock
