// Shows the progress of a run: a bar on a terminal, else a line from time to time.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

#include "keelhouse/core/session.h"
#include "keelhouse/propagate/run_status.h"

namespace paddock::keelhouse {

// Measures a rate of progress.
class RateMeter {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Records the progress at that time. Times must not decrease.
  void note(Time time, std::uint64_t done);

  // Units per second over the last ten seconds; absent until half a second has passed.
  std::optional<double> rate() const;

 private:
  struct Sample {
    Time time;
    std::uint64_t done;
  };
  std::deque<Sample> samples_;
};

class ProgressDisplay {
 public:
  // The session outlives this object; with its `json` nothing is shown.
  explicit ProgressDisplay(const Session& session) : session_(session) {}
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;
  // Clears the bar.
  ~ProgressDisplay() { clear(); }

  // Nothing while nothing is known.
  void show(const RunStatus& run, RateMeter::Time now = std::chrono::steady_clock::now());

  // Before anything else is printed.
  void clear();

 private:
  void showBar(const RunStatus& run);
  void showLine(const RunStatus& run, RateMeter::Time now);

  const Session& session_;
  RateMeter meter_;
  bool hasBar_ = false;
  std::optional<RateMeter::Time> lastLine_;
};

}  // namespace paddock::keelhouse
