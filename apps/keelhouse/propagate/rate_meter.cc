#include "keelhouse/propagate/rate_meter.h"

namespace paddock::keelhouse {

namespace {

constexpr std::chrono::seconds kWindow{10};
constexpr std::chrono::milliseconds kShortest{500};

}  // namespace

void RateMeter::note(Time time, std::uint64_t done) {
  samples_.push_back({time, done});
  while (samples_.size() > 2 && time - samples_[1].time >= kWindow) samples_.pop_front();
}

std::optional<double> RateMeter::rate() const {
  if (samples_.empty()) return std::nullopt;
  const auto passed = samples_.back().time - samples_.front().time;
  const std::uint64_t before = samples_.front().done;
  if (passed < kShortest || samples_.back().done < before) return std::nullopt;
  return static_cast<double>(samples_.back().done - before) /
         std::chrono::duration<double>(passed).count();
}

}  // namespace paddock::keelhouse
