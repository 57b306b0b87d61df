// The list of share points that a desktop's file browser shows.
//
// Items hold file URLs: "file://" and the percent-encoded absolute path. On a system without such
// a list, insertions are accepted and no item is kept.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"

namespace paddock {

// Without user interaction (1) and without mounting volumes (2).
inline constexpr std::uint32_t kResolveQuietly = 3;

class SharedFileListItem {
 public:
  virtual ~SharedFileListItem() = default;
  // The URL that the item stands for; absent when it cannot be resolved under `flags`.
  virtual std::optional<std::string> resolve(std::uint32_t flags) = 0;
};

class SharedFileList {
 public:
  using Item = std::shared_ptr<SharedFileListItem>;
  virtual ~SharedFileList() = default;
  // The items as they are now, in order.
  virtual std::vector<Item> snapshot() = 0;
  // Appends an item; null when that failed.
  virtual Item insertLast(const std::string& url) = 0;
  // 0, or the list's own error number.
  virtual Status remove(const Item& item) = 0;
};

class SharedFileLists {
 public:
  virtual ~SharedFileLists() = default;
  // The list of share points; null when it cannot be created.
  virtual std::unique_ptr<SharedFileList> createSharePointList() = 0;
};

// The file URL of an absolute path: letters, digits and "-._~/" as they are, every other byte
// as %XX. Absent for a path that is empty, relative or holds a NUL.
std::optional<std::string> fileUrl(const std::string& path);

}  // namespace paddock
