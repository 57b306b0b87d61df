// Time and byte limits of one operation on a directory server, over all its connections, requests
// and pages. Every byte received counts, and the memory overhead of entries. Not thread-safe.
#pragma once

#include <chrono>
#include <cstddef>

namespace paddock {

class LdapAllowance {
 public:
  using Clock = std::chrono::steady_clock;

  // Memory overhead of an entry, an attribute and a value.
  static constexpr std::size_t kPerEntry = 256;
  static constexpr std::size_t kPerAttribute = 64;
  static constexpr std::size_t kPerValue = 32;

  LdapAllowance(std::chrono::milliseconds time, std::size_t bytes)
      : end_(Clock::now() + time), left_(bytes) {}

  Clock::time_point end() const { return end_; }
  // Not negative.
  std::chrono::milliseconds timeLeft() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
    return left.count() > 0 ? left : std::chrono::milliseconds(0);
  }

  // Takes so many bytes; false when fewer were left, and from then on.
  bool spend(std::size_t bytes) {
    isSpent_ = isSpent_ || bytes > left_;
    if (!isSpent_) left_ -= bytes;
    return !isSpent_;
  }
  bool isSpent() const { return isSpent_; }

 private:
  Clock::time_point end_;
  std::size_t left_;
  bool isSpent_ = false;
};

}  // namespace paddock
