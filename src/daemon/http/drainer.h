// Drains, for a while, what clients still send after they were answered.
//
// A Unix socket that is closed with unread bytes makes the client's next write fail, and a client
// that is still sending then never reads the answer. So the daemon's end stays open, and input is
// discarded, until the client closes, has sent too much or takes too long.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>
#include <thread>
#include <vector>

#include "base/file_access.h"
#include "base/mutex.h"

namespace paddock {

class Drainer {
 public:
  // `most` connections at a time; further ones are closed at once. A few of them at most are of
  // callers without rights, for a shorter time.
  explicit Drainer(std::size_t most = 256,
                   std::chrono::milliseconds patience = std::chrono::seconds(5));
  Drainer(const Drainer&) = delete;
  Drainer& operator=(const Drainer&) = delete;
  ~Drainer();

  // Shuts down the sending direction of the socket and drains the other one.
  void add(FileDescriptor socket, bool stranger = false);
  // Sends a short text first.
  void answer(FileDescriptor socket, std::string_view text, bool stranger = false);

  static constexpr std::size_t kMostStrangers = 32;

 private:
  struct Entry {
    FileDescriptor socket;
    std::chrono::steady_clock::time_point deadline;
    std::size_t left;
    bool stranger;
  };

  void run();
  void collect(std::vector<Entry>& entries);
  static bool drain(Entry& entry, std::vector<char>& buffer);
  void wake() const;

  const std::size_t most_;
  const std::chrono::milliseconds patience_;
  FileDescriptor wakeUp_;
  Mutex mutex_;
  std::vector<Entry> added_ PADDOCK_GUARDED_BY(mutex_);
  std::size_t count_ PADDOCK_GUARDED_BY(mutex_) = 0;
  std::size_t strangers_ PADDOCK_GUARDED_BY(mutex_) = 0;  // of them
  bool stopping_ PADDOCK_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace paddock
