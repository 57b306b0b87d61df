// Folders of the tree that is worked on.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "copyprivs/levels.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::copyprivs {

// A folder that was met, with those above it: enough to find it again by name from any of them, and
// to know it again. Never changed, so that any thread may read it.
class Folder {
 public:
  using Pointer = std::shared_ptr<const Folder>;

  Folder(Pointer above, std::string name, const ObjectStatus& status, Levels::Pointer inside);
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  // Null for the starting folder.
  const Pointer& above() const { return above_; }
  const std::string& name() const { return name_; }
  // Of what it holds.
  const Levels::Pointer& levels() const { return levels_; }
  bool is(const ObjectStatus& status) const;
  // Notes that an error of the folder is told of; false when one was before, since an object counts
  // once.
  bool noteError() const { return !failed_.exchange(true); }
  // The path of what has the name in it. The starting folder's name is its path.
  std::string pathOf(const std::string& name) const;
  std::string path() const;
  // How long that is.
  std::size_t pathLength() const { return pathLength_; }

 private:
  mutable Pointer above_;
  const std::string name_;
  const std::size_t pathLength_;
  const std::uint64_t device_;
  const std::uint64_t inode_;
  const Levels::Pointer levels_;
  mutable std::atomic<bool> failed_ = false;
};

}  // namespace paddock::copyprivs
