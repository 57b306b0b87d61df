// Shared folders in memory. A test says what stands where; a call can be made to fail.
#pragma once

#include <cerrno>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "platform/shared_folders.h"

namespace paddock {

class InMemorySharedFolders final : public SharedFolders {
 public:
  // A new folder is at the path, in the place of what was there.
  void place(const std::string& path) { present_[path] = ++numbers_; }
  // Nothing is there any more that is a folder.
  void take(const std::string& path) { present_.erase(path); }
  // Makes the calls fail from now on.
  void breakDown() { isBroken_ = true; }

  int remember(const std::string& path, const std::string& name) override {
    if (isBroken_) return EIO;
    const auto folder = present_.find(path);
    if (folder == present_.end()) return forget(path);
    remembered_[path] = {name, folder->second};
    return 0;
  }
  int forget(const std::string& path) override {
    if (isBroken_) return EIO;
    remembered_.erase(path);
    return 0;
  }
  SharedFolder compare(const std::string& path, const std::string& name) override {
    const auto known = remembered_.find(path);
    const auto folder = present_.find(path);
    if (isBroken_) return SharedFolder::unreachable;
    if (known == remembered_.end() || known->second.first != name) return SharedFolder::unknown;
    if (folder == present_.end()) return SharedFolder::unreachable;
    return known->second.second == folder->second ? SharedFolder::same : SharedFolder::other;
  }

 private:
  std::uint64_t numbers_ = 0;
  bool isBroken_ = false;
  std::map<std::string, std::uint64_t> present_;
  std::map<std::string, std::pair<std::string, std::uint64_t>> remembered_;
};

}  // namespace paddock
