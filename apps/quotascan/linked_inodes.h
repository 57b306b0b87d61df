// The inodes with several links that were counted already. Any thread may ask.
#pragma once

#include <array>
#include <map>
#include <mutex>

#include "platform/linux/privileges/object_status.h"
#include "quotascan/number_set.h"

namespace paddock::quotascan {

class LinkedInodes {
 public:
  // True for the first of an inode's links that is met. Only such inodes take room here.
  bool isFirst(const ObjectStatus& status) {
    Part& part = parts_[status.inode % parts_.size()];
    const std::lock_guard lock(part.mutex);
    return part.inodes[status.device].insert(status.inode);
  }

 private:
  // In parts, so that threads seldom wait for each other.
  static constexpr std::size_t kParts = 61;
  struct Part {
    std::mutex mutex;
    std::map<std::uint64_t, NumberSet<std::uint64_t>> inodes;  // by device
  };
  std::array<Part, kParts> parts_;
};

}  // namespace paddock::quotascan
