// The folders from the start of a part of a walk down to its current position, at any depth, with a
// fixed number of descriptors. A folder closed on the way down is reopened by names from an open
// ancestor, and identified by its inode; no lookup leaves the tree, since ".." is never used.
#pragma once

#include <cstdint>
#include <vector>

#include "base/file_access.h"
#include "base/name_list.h"
#include "copyprivs/folder.h"

namespace paddock::copyprivs {

class FolderStack {
 public:
  struct Level {
    Folder::Pointer folder;
    FileDescriptor descriptor;  // none while it is closed
    std::int64_t position = 0;  // offset at which reading continues, for lseek(2)
    bool isRead = false;        // to its end
    NameList pending;           // names of folders in it that are to be entered
    // For an estimate: how much of the tree each pending name is thought to be, and what was not
    // read yet.
    double pendingShare = 0;
    double unreadShare = 0;
    std::uint64_t unread = 0;  // how many entries those are, about
  };

  // At most `descriptors` (4 or more) are open. `mount` is the mount that folders must be on.
  FolderStack(std::size_t descriptors, const ObjectStatus& mount);

  bool empty() const { return levels_.empty(); }
  std::size_t depth() const { return levels_.size(); }
  // The lowest level, open when it was just pushed.
  Level& top() { return levels_.back(); }
  const Level& top() const { return levels_.back(); }
  // Opens the lowest level again when it is closed. Returns 0 or an errno: ESTALE when the folder
  // was moved.
  int openTop();
  Level& push(Folder::Pointer folder, FileDescriptor descriptor);
  void pop();
  void clear();
  // The highest open level with pending names, whose folder is mostly the largest; null for none.
  Level* highestPending();

 private:
  int findAgain(std::size_t from, std::size_t to);
  void noteOpen(std::size_t level);
  void closeOne();

  const std::size_t descriptors_;
  const ObjectStatus& mount_;
  std::vector<Level> levels_;
  std::vector<std::size_t> open_;  // the open levels, ascending
};

}  // namespace paddock::copyprivs
