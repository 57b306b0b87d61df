// What each user and each group uses.
#pragma once

#include <cstdint>
#include <unordered_map>

namespace paddock::quotascan {

struct Usage {
  std::uint64_t bytes = 0;  // allocated
  std::uint64_t files = 0;  // inodes of every type
  friend bool operator==(const Usage&, const Usage&) = default;
};

// By user or group id. Belongs to one thread at a time.
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
