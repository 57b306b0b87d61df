// Batched reading of directory entries; see getdents64(2).
#pragma once

#include <dirent.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace paddock {

// Entries that were read, in the kernel's form.
class FolderEntries {
 public:
  explicit FolderEntries(std::span<const char> bytes) : rest_(bytes) {}

  // The next entry but "." and "..", or null. Stays while the bytes do.
  const dirent64* next();
  // Removes about the second half of the remaining entries and returns it.
  std::vector<char> cutHalf();
  // As `next`, of all entries.
  const dirent64* take();

 private:
  std::span<const char> rest_;
};

// Reads entries from where the folder stands. 0 with none at its end, or an errno. `position` is
// where the next ones begin (lseek(2)), and stays as it is when there are none.
int readEntries(int folder, std::span<char> buffer, std::span<const char>& entries,
                std::int64_t& position);

}  // namespace paddock
