// What one operation on a directory server may cost as a whole, however many connections, requests
// and pages it takes: time, and bytes. Every byte that the server sends counts, and what an entry
// takes in memory besides. For one thread at a time.
#pragma once

#include <chrono>
#include <cstddef>

namespace paddock {

class LdapAllowance {
 public:
  using Clock = std::chrono::steady_clock;

  // What an entry, an attribute and a value take besides their bytes.
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
