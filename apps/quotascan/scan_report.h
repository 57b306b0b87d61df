// The summary of a run.
#pragma once

#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>
#include <thread>

#include "base/mutex.h"
#include "quotascan/volume_scan.h"

namespace paddock::quotascan {

// One line for a person, of what was brought up to date; empty for nothing. `volume` is its path.
std::string summaryLine(const std::string& volume, const ScanOutcome& outcome);

// {"users": {"entries": N, "slots": N, "grown": BOOLEAN, "countedBy": "walk" or "kernel"},
// "groups": the same, "objects": N}: what was not brought up to date, or not walked, is left out.
std::string summaryJson(const ScanOutcome& outcome);

// 1234567 as "1,234,567".
std::string grouped(std::uint64_t number);

// The progress of a walk, on one line of a terminal.

// Updates the number periodically during its lifetime, then clears the line.
class Progress {
 public:
  // Both outlive this object; nothing else may write to `terminal` during its lifetime.
  Progress(std::ostream& terminal, const std::atomic<std::uint64_t>& objects);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

 private:
  void show();
  // Whether the end has come before the next time to show it.
  bool waitForEnd() PADDOCK_REQUIRES(mutex_);

  std::ostream& terminal_;
  const std::atomic<std::uint64_t>& objects_;
  Mutex mutex_;
  ConditionVariable ending_;
  bool isEnding_ PADDOCK_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace paddock::quotascan
