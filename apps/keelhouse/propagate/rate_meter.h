// How fast something goes on.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace paddock::keelhouse {

class RateMeter {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // How far it is at that time. Times do not go back.
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

}  // namespace paddock::keelhouse
