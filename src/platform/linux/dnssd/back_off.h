// The pauses between tries that fail: each is twice the one before, up to the longest.
#pragma once

#include <chrono>

namespace paddock {

class BackOff {
 public:
  // 0 < first <= longest.
  BackOff(std::chrono::milliseconds first, std::chrono::milliseconds longest)
      : first_(first), longest_(longest), next_(first) {}

  // Before the next try.
  std::chrono::milliseconds pause() {
    const auto pause = next_;
    next_ = pause > longest_ / 2 ? longest_ : pause * 2;
    return pause;
  }
  // After one that did not fail.
  void reset() { next_ = first_; }

 private:
  std::chrono::milliseconds first_;
  std::chrono::milliseconds longest_;
  std::chrono::milliseconds next_;
};

}  // namespace paddock
