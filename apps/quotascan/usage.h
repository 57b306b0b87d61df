// What each user and each group uses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "base/mutex.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::quotascan {

// A set of unsigned numbers in one array: 8 to 16 bytes for each of 32 bits, twice that for 64.
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

// The inodes with several links that were counted already. Thread-safe.
class LinkedInodes {
 public:
  // True for the first link of an inode that is encountered. Only inodes with several links are
  // stored.
  bool isFirst(const ObjectStatus& status) {
    Part& part = parts_[status.inode % parts_.size()];
    const MutexLock lock(part.mutex);
    return part.inodes[status.device].insert(status.inode);
  }

 private:
  // Sharded, to reduce lock contention.
  static constexpr std::size_t kParts = 61;
  struct Part {
    Mutex mutex;
    std::map<std::uint64_t, NumberSet<std::uint64_t>> inodes
        PADDOCK_GUARDED_BY(mutex);  // by device
  };
  std::array<Part, kParts> parts_;
};

struct Usage {
  std::uint64_t bytes = 0;  // allocated
  std::uint64_t files = 0;  // inodes of every type
  friend bool operator==(const Usage&, const Usage&) = default;
};

// By user or group id. Not thread-safe.
class UsageTable {
 public:
  using Map = std::unordered_map<std::uint32_t, Usage>;

  UsageTable() = default;
  UsageTable(UsageTable&& other) noexcept : map_(std::move(other.map_)) { other.last_ = nullptr; }
  UsageTable& operator=(UsageTable&&) = delete;

  // One more object of the id.
  void add(std::uint32_t id, std::uint64_t bytes);
  void add(const UsageTable& other);
  const Map& map() const { return map_; }

 private:
  Map map_;
  // Objects of one owner mostly stand together.
  std::uint32_t lastId_ = 0;
  Usage* last_ = nullptr;
};

// What a walk found.
struct Counts {
  UsageTable users;
  UsageTable groups;
  std::uint64_t objects = 0;

  void add(const Counts& other) {
    users.add(other.users);
    groups.add(other.groups);
    objects += other.objects;
  }
};

}  // namespace paddock::quotascan
