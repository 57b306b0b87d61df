// Shows how far a run is: a bar that moves on a terminal, else a line from time to time.
#pragma once

#include <chrono>
#include <optional>

#include "keelhouse/core/session.h"
#include "keelhouse/propagate/rate_meter.h"
#include "keelhouse/propagate/run_status.h"

namespace paddock::keelhouse {

class ProgressDisplay {
 public:
  // The session outlives this object; with its `json` nothing is shown.
  explicit ProgressDisplay(const Session& session) : session_(session) {}
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;
  // Takes the bar away.
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
