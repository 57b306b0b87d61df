// Accepts connections and finds out what their users may do.
//
// One thread. A connection of an owner or of a user whose rights are known is placed at once; the
// others wait outside, without a thread of their own, until the rights are known. Somebody without
// rights who finds no place waits a moment, because the end of his last connection may not be seen
// yet; and who comes again and again is not answered any more, because answers take longer than
// connecting does, and others wait behind him.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "base/file_descriptor.h"
#include "daemon/http/known_rights.h"
#include "daemon/http/peer.h"

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
    // Answers 503. `rights`: nothing, too, where they are not known.
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
  // Ends the thread; who waits outside is not answered.
  void stop();

  // Any thread.
  KnownRights& rights() { return rights_; }

 private:
  void run();
  void serve(bool judged, bool arrived, Clock::time_point now);
  // False when nobody more has come.
  bool acceptOne();
  void receive(FileDescriptor socket);
  void admit(Arrival arrival);
  void refuse(Arrival arrival, Rights rights, const std::string& why);
  // Whether nothing more is to be done about it.
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
