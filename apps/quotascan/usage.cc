#include "quotascan/usage.h"

namespace paddock::quotascan {

void UsageTable::add(std::uint32_t id, std::uint64_t bytes) {
  if (last_ == nullptr || lastId_ != id) {
    last_ = &map_[id];
    lastId_ = id;
  }
  last_->bytes += bytes;
  ++last_->files;
}

void UsageTable::add(const UsageTable& other) {
  for (const auto& [id, usage] : other.map_) {
    Usage& mine = map_[id];
    mine.bytes += usage.bytes;
    mine.files += usage.files;
  }
}

}  // namespace paddock::quotascan
