#include "volumes/quota_entries.h"

#include <unistd.h>

#include <algorithm>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} << 10U;

}  // namespace

QuotaEntries::QuotaEntries(int file, std::uint32_t maxentries)
    : file_(file),
      position_(quotaSlotOffset(0)),
      end_(quotaFileSize(maxentries)),
      buffer_(kBufferSize) {}

std::span<const std::uint8_t, kQuotaSlotSize> QuotaEntries::slot() const {
  return std::span<const std::uint8_t, kQuotaSlotSize>(buffer_.data() + used_, kQuotaSlotSize);
}

// A file may claim billions of slots and hold none of them. File systems that do not know where
// their holes are read as zeros, which are empty slots.
void QuotaEntries::skipHole() {
  const off_t data = ::lseek(file_, static_cast<off_t>(position_), SEEK_DATA);
  if (data < 0) {
    if (errno == ENXIO) position_ = end_;
    return;
  }
  const auto slots = static_cast<std::uint64_t>(data) / kQuotaSlotSize;
  position_ = std::max(position_, slots * kQuotaSlotSize);
}

bool QuotaEntries::fill() {
  used_ = 0;
  filled_ = 0;
  if (position_ < end_) skipHole();
  if (position_ >= end_) return false;
  const auto size = std::min<std::uint64_t>(buffer_.size(), end_ - position_);
  std::size_t count = 0;
  error_ = errnoOf(
      [&] { return ::pread(file_, buffer_.data(), size, static_cast<off_t>(position_)); }, &count);
  if (error_ != 0) return false;
  filled_ = count / kQuotaSlotSize * kQuotaSlotSize;
  position_ += filled_;
  return filled_ > 0;
}

std::optional<QuotaEntry> QuotaEntries::next() {
  while (used_ < filled_ || fill()) {
    for (; used_ < filled_; used_ += kQuotaSlotSize) {
      if (quotaEntryId(slot()) == 0) continue;
      const QuotaEntry entry = decodeQuotaEntry(slot());
      used_ += kQuotaSlotSize;
      return entry;
    }
  }
  return std::nullopt;
}

}  // namespace paddock
