// The folders from the start of a part of a walk down to its current position, at any depth, with a
// fixed number of descriptors: the highest folder and the lowest ones are open, and one in between
// is opened again when the walk comes back to it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/file_access.h"
#include "base/name_list.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::quotascan {

class FolderStack {
 public:
  struct Level {
    FileDescriptor folder;  // closed when it holds none
    std::string name;       // in the folder above; empty for the highest
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    FileTime changed;           // its ctime when it was encountered
    bool isCounted = false;     // what it holds: its folders are looked at, and nothing else
    std::int64_t position = 0;  // offset at which reading continues, for lseek(2)
    bool isRead = false;        // to its end
    NameList pending;           // names of folders in it that are to be entered
  };

  // `descriptors` is at least 2.
  explicit FolderStack(std::size_t descriptors) : descriptors_(descriptors) {}

  bool empty() const { return levels_.empty(); }
  std::size_t depth() const { return levels_.size(); }
  // The lowest level, always open. Changed only through this object where it has a function for it.
  Level& top() { return levels_.back(); }
  const Level& base() const { return levels_.front(); }

  void push(FileDescriptor folder, const ObjectStatus& status, std::string name,
            bool isCounted = false);
  // Leaves the lowest level. Returns 0, or the errno of reopening the one above, which stays
  // closed: ESTALE when it was moved.
  int pop();
  void clear();

  void addPending(Level& level, std::string_view name);
  // In place of all that the level has.
  void setPending(Level& level, NameList names);
  // The name that was added last; the level has one.
  std::string takePending(Level& level);
  // Takes about half of the names away, as NameList::cutHalf.
  NameList cutPending(Level& level);
  // The bytes of all pending names.
  std::size_t pendingBytes() const { return pendingBytes_; }
  // The highest open level with a pending name, whose folder is mostly the largest; null for none.
  Level* highestPending();

 private:
  int reopen(std::size_t level);
  bool openBy(int folder, const char* name, const Level& wanted, FileDescriptor& opened) const;
  bool openFromBase(std::size_t level, FileDescriptor& opened) const;

  std::size_t descriptors_;
  std::vector<Level> levels_;
  std::size_t firstOpen_ = 1;  // the highest open level below the base
  std::size_t pendingBytes_ = 0;
};

}  // namespace paddock::quotascan
