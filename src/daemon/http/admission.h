// Connection limits, in total and per user.
//
// A connection takes a place. Users without rights have a few places of their own, so that they
// cannot lock others out; of the others some are reserved for administrators. A connection without
// a free place may still wait for its request, to be refused in the reply: a limited number of
// those, too. Programs that the daemon itself is waiting for are never counted.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <optional>

#include "base/mutex.h"
#include "daemon/audit/access_policy.h"

namespace paddock {

// Whether connections of the process are admitted whatever the limits say: a program that a running
// request waits for, or this process itself, which proves that it answers.
bool isAlwaysAdmitted(pid_t process);

class ConnectionLimits {
 public:
  // Of users without rights, in total and per user.
  static constexpr std::size_t kStrangers = 16;
  static constexpr std::size_t kStrangersPerUser = 2;
  // Of `connections`, for administrators alone; half of them when there are fewer.
  static constexpr std::size_t kKeptForAdministrators = 32;

  ConnectionLimits(std::size_t connections, std::size_t perUser, std::size_t waiting)
      : waiting_(waiting), connections_(connections), perUser_(perUser) {}

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

  bool hasPlaceFor(Rights rights) const PADDOCK_REQUIRES(mutex_);
  std::size_t& takenWith(Rights rights) PADDOCK_REQUIRES(mutex_) {
    return taken_.at(static_cast<std::size_t>(rights));
  }
  std::size_t takenWith(Rights rights) const PADDOCK_REQUIRES(mutex_) {
    return taken_.at(static_cast<std::size_t>(rights));
  }

  const std::size_t waiting_;
  Mutex mutex_;
  std::size_t connections_ PADDOCK_GUARDED_BY(mutex_);
  std::size_t perUser_ PADDOCK_GUARDED_BY(mutex_);
  std::array<std::size_t, 3> taken_ PADDOCK_GUARDED_BY(mutex_){};  // by rights
  std::size_t takenWaiting_ PADDOCK_GUARDED_BY(mutex_) = 0;
  Users strangers_ PADDOCK_GUARDED_BY(mutex_);
  Users users_ PADDOCK_GUARDED_BY(mutex_);
};

// The place of one connection, released in the destructor.
class ConnectionPlace {
 public:
  ConnectionPlace(ConnectionLimits& limits, uid_t user) : limits_(limits), user_(user) {}
  ConnectionPlace(const ConnectionPlace&) = delete;
  ConnectionPlace& operator=(const ConnectionPlace&) = delete;
  ~ConnectionPlace();

  // Takes a place for these rights; returns whether this connection has one now. A place for other
  // rights is exchanged, or kept when there is none.
  bool take(Rights rights);
  // The rights that it has a place for; nullopt: it has none.
  std::optional<Rights> rights() const { return taken_; }
  // Takes a waiting place; whether there was one.
  bool wait();

 private:
  ConnectionLimits& limits_;
  uid_t user_;
  std::optional<Rights> taken_;
  bool waiting_ = false;
};

// Counts the requests in progress, and closes when the daemon shuts down.
//
// Once closed, only requests of programs that running requests wait for are admitted, because those
// requests could not be answered otherwise.
class RequestGate {
 public:
  // Admits a request, unless the gate is closed and the request is not `nested`.
  bool enter(bool nested);
  // The request's body is complete: from here on it is waited for without a limit.
  void bodyComplete();
  // The request is answered, or over. `complete`: bodyComplete was called for it.
  void leave(bool complete);

  void close();
  bool closed() const;
  // Waits until every admitted request is answered; at most `patience` for those whose body is
  // incomplete.
  void waitUntilEmpty(std::chrono::milliseconds patience);

 private:
  mutable Mutex mutex_;
  ConditionVariable changed_;
  bool closed_ PADDOCK_GUARDED_BY(mutex_) = false;
  std::size_t receiving_ PADDOCK_GUARDED_BY(mutex_) = 0;
  std::size_t running_ PADDOCK_GUARDED_BY(mutex_) = 0;
};

}  // namespace paddock
