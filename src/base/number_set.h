// Large sets of numbers, such as those of inodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace paddock {

// A set of unsigned numbers in one array: 8 to 16 bytes for each of 32 bits, twice that for 64. Not
// thread-safe.
template <typename Number>
class NumberSet {
 public:
  // False when it was there already.
  bool insert(Number number) {
    if (number == 0) return zeroIsNew();
    if ((size_ + 1) * 4 > slots_.size() * 3) grow();
    Number& slot = slots_[find(number)];
    if (slot == number) return false;
    slot = number;
    ++size_;
    return true;
  }
  bool contains(Number number) const {
    if (number == 0) return hasZero_;
    return !slots_.empty() && slots_[find(number)] == number;
  }
  std::size_t size() const { return size_ + (hasZero_ ? 1 : 0); }

 private:
  static constexpr std::size_t kFirstSlots = 16;
  static constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15;  // 2^64 / golden ratio

  bool zeroIsNew() {
    const bool isNew = !hasZero_;
    hasZero_ = true;
    return isNew;
  }
  // Where the number is, or would be. The table is never full.
  std::size_t find(Number number) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = static_cast<std::size_t>((number * kMultiplier) >> 32U) & mask;
    while (slots_[at] != 0 && slots_[at] != number) at = (at + 1) & mask;
    return at;
  }
  void grow() {
    std::vector<Number> old(slots_.empty() ? kFirstSlots : slots_.size() * 2);
    old.swap(slots_);
    for (const Number number : old) {
      if (number != 0) slots_[find(number)] = number;
    }
  }

  std::vector<Number> slots_;  // 0: free
  std::size_t size_ = 0;       // without the number 0
  bool hasZero_ = false;
};

}  // namespace paddock
