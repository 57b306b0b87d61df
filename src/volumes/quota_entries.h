// The entries of a quota file, read one after the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "volumes/quota_file_format.h"

namespace paddock {

class QuotaEntries {
 public:
  // `file` stays open as long as this object lives; its table begins behind the header and has
  // `maxentries` slots, or fewer when the file ends before.
  QuotaEntries(int file, std::uint32_t maxentries);

  // The next entry that has an id; absent at the end, and after an error.
  std::optional<QuotaEntry> next();
  // The errno of reading; 0 when there was none.
  int error() const { return error_; }

 private:
  std::span<const std::uint8_t, kQuotaSlotSize> slot() const;
  bool fill();
  void skipHole();

  int file_;
  std::uint64_t position_;  // where the next reading begins
  std::uint64_t end_;
  std::vector<std::uint8_t> buffer_;
  std::size_t used_ = 0;    // of the buffer, by `next`
  std::size_t filled_ = 0;  // of the buffer, whole slots
  int error_ = 0;
};

}  // namespace paddock
