// Accepts connections and determines the rights of their users.
//
// Single-threaded. A connection of an owner or of a user whose rights are known is placed at once;
// the others are queued, without a thread of their own, until the rights are known. A user without
// rights for whom there is no place waits a moment, because the end of the previous connection may
// not have been noticed yet; one who connects repeatedly is no longer answered, because answering
// takes longer than connecting, and others are queued behind.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "base/file_access.h"
#include "daemon/http/known_rights.h"
#include "daemon/http/listening_socket.h"

namespace paddock {

class Acceptor {
 public:
  using Clock = std::chrono::steady_clock;

  struct Arrival {
    FileDescriptor socket;
    Peer peer;
    Clock::time_point time;
    std::optional<Clock::time_point> withoutPlace = std::nullopt;  // since when
  };

  // Called on the thread.
  struct Door {
    // Takes the connection; false when there is no place for one with these rights.
    std::function<bool(Arrival& arrival, Rights rights)> take;
    // Answers 503. `rights`: nullopt also where they are not known.
    std::function<void(Arrival arrival, Rights rights, const std::string& why)> refuse;
    // A few times a second.
    std::function<void(Clock::time_point now)> tick;
  };

  // `listener` must stay open as long as this object lives.
  Acceptor(int listener, KnownRights::Judge judge, Door door);
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;
  ~Acceptor() { stop(); }

  void start();
  // Ends the thread; queued connections are not answered.
  void stop();

  // Any thread.
  KnownRights& rights() { return rights_; }

 private:
  void run();
  void serve(bool judged, bool arrived, Clock::time_point now);
  // False when no connection is pending.
  bool acceptOne();
  void receive(FileDescriptor socket);
  void admit(Arrival arrival);
  void refuse(Arrival arrival, Rights rights, const std::string& why);
  // Whether the arrival is settled.
  bool place(Arrival& arrival, Clock::time_point now);
  void placeWaiting(Clock::time_point now);
  bool hasRoom(const Arrival& arrival) const;

  const int listener_;
  const Door door_;
  FileDescriptor stop_;
  FileDescriptor judged_;
  std::list<Arrival> waiting_;
  Clock::time_point nextTick_{};
  std::map<uid_t, std::size_t> refused_;  // of this second, of users without rights
  Clock::time_point nextSecond_{};
  KnownRights rights_;
  std::thread thread_;
};

}  // namespace paddock
