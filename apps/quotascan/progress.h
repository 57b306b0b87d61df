// How far a walk is, on one line of a terminal.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <thread>

namespace paddock::quotascan {

// Shows the number again and again as long as the object lives, then takes the line away.
class Progress {
 public:
  // Both outlive this object; nothing else writes to `terminal` meanwhile.
  Progress(std::ostream& terminal, const std::atomic<std::uint64_t>& objects);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

 private:
  void show();

  std::ostream& terminal_;
  const std::atomic<std::uint64_t>& objects_;
  std::mutex mutex_;
  std::condition_variable ending_;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace paddock::quotascan
