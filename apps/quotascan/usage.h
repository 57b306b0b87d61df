// What each user and each group uses.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

#include "base/mutex.h"
#include "base/number_set.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::quotascan {

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
  // A folder from or to which something may have moved that is not counted, or twice; empty for
  // none.
  std::string unsettled;

  void add(const Counts& other) {
    users.add(other.users);
    groups.add(other.groups);
    objects += other.objects;
    if (unsettled.empty()) unsettled = other.unsettled;
  }
};

}  // namespace paddock::quotascan
