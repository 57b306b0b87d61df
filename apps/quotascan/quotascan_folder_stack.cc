#include "quotascan/quotascan_folder_stack.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "base/system_call.h"

namespace paddock::quotascan {

namespace {

constexpr std::size_t kSearchedLevels = 64;

}  // namespace

void FolderStack::push(FileDescriptor folder, const ObjectStatus& status, std::string name,
                       bool isCounted) {
  levels_.push_back({std::move(folder),
                     std::move(name),
                     status.device,
                     status.inode,
                     status.changed,
                     isCounted,
                     0,
                     false,
                     {}});
  if (levels_.size() - firstOpen_ + 1 <= descriptors_) return;
  levels_[firstOpen_].folder.reset();
  ++firstOpen_;
}

int FolderStack::pop() {
  const FileDescriptor left = std::move(top().folder);
  pendingBytes_ -= top().pending.bytes();
  levels_.pop_back();
  if (levels_.size() <= 1 || levels_.size() > firstOpen_) {
    if (levels_.empty()) firstOpen_ = 1;
    return 0;
  }
  const std::size_t level = levels_.size() - 1;
  firstOpen_ = level;
  FileDescriptor opened;
  // The folder left may have been moved concurrently, so that its ".." is another folder.
  if (!openBy(left.get(), "..", levels_[level], opened) && !openFromBase(level, opened)) {
    return ESTALE;
  }
  levels_[level].folder = std::move(opened);
  if (levels_[level].position == 0 || levels_[level].isRead) return 0;
  return errnoOf(
      [&] { return ::lseek(levels_[level].folder.get(), levels_[level].position, SEEK_SET); });
}

bool FolderStack::openBy(int folder, const char* name, const Level& wanted,
                         FileDescriptor& opened) const {
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); },
      &descriptor);
  if (error != 0) return false;
  opened = FileDescriptor(descriptor);
  ObjectStatus status;
  return statusOf(descriptor, status) == 0 && status.device == wanted.device &&
         status.inode == wanted.inode;
}

bool FolderStack::openFromBase(std::size_t level, FileDescriptor& opened) const {
  FileDescriptor above;
  for (std::size_t next = 1; next <= level; ++next) {
    const int folder = above ? above.get() : base().folder.get();
    if (!openBy(folder, levels_[next].name.c_str(), levels_[next], opened)) return false;
    above = std::move(opened);
  }
  opened = std::move(above);
  return true;
}

void FolderStack::clear() {
  levels_.clear();
  firstOpen_ = 1;
  pendingBytes_ = 0;
}

void FolderStack::addPending(Level& level, std::string_view name) {
  const std::size_t before = level.pending.bytes();
  level.pending.add(name);
  pendingBytes_ += level.pending.bytes() - before;
}

void FolderStack::setPending(Level& level, NameList names) {
  pendingBytes_ = pendingBytes_ - level.pending.bytes() + names.bytes();
  level.pending = std::move(names);
}

std::string FolderStack::takePending(Level& level) {
  const std::size_t before = level.pending.bytes();
  std::string name = level.pending.take();
  pendingBytes_ -= before - level.pending.bytes();
  return name;
}

NameList FolderStack::cutPending(Level& level) {
  NameList cut = level.pending.cutHalf();
  pendingBytes_ -= cut.bytes();
  return cut;
}

FolderStack::Level* FolderStack::highestPending() {
  const std::size_t searched = std::min(levels_.size(), kSearchedLevels);
  for (std::size_t level = 0; level < searched; ++level) {
    if (levels_[level].folder && !levels_[level].pending.empty()) return &levels_[level];
  }
  return nullptr;
}

}  // namespace paddock::quotascan
