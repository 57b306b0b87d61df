#include "copyprivs/copyprivs_folder_stack.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/system_call.h"
#include "copyprivs/folder.h"

namespace paddock::copyprivs {

FolderStack::FolderStack(std::size_t descriptors, const ObjectStatus& mount)
    : descriptors_(descriptors), mount_(mount) {}

FolderStack::Level& FolderStack::push(Folder::Pointer folder, FileDescriptor descriptor) {
  levels_.emplace_back().folder = std::move(folder);
  top().descriptor = std::move(descriptor);
  noteOpen(levels_.size() - 1);
  return top();
}

void FolderStack::pop() {
  if (!open_.empty() && open_.back() == levels_.size() - 1) open_.pop_back();
  levels_.pop_back();
}

void FolderStack::clear() {
  levels_.clear();
  open_.clear();
}

FolderStack::Level* FolderStack::highestPending() {
  for (const std::size_t level : open_) {
    if (!levels_[level].pending.empty()) return &levels_[level];
  }
  return nullptr;
}

int FolderStack::openTop() {
  if (top().descriptor) return 0;
  const int error = findAgain(open_.back(), levels_.size() - 1);
  if (error != 0 || top().isRead || top().position == 0) return error;
  return errnoOf([&] { return ::lseek(top().descriptor.get(), top().position, SEEK_SET); });
}

// Opens the levels below `from`, down to `to`.
int FolderStack::findAgain(std::size_t from, std::size_t to) {
  int above = levels_[from].descriptor.get();
  for (std::size_t next = from + 1; next <= to; ++next) {
    Level& level = levels_[next];
    FileDescriptor held;
    ObjectStatus status;
    int error = holdInside(above, level.folder->name().c_str(), mount_, held, status);
    if (error == EXDEV) return ESTALE;
    if (error != 0) return error;
    if (!level.folder->is(status)) return ESTALE;
    error = openFolder(held.get(), level.descriptor);
    if (error != 0) return error;
    above = level.descriptor.get();
    noteOpen(next);
  }
  return 0;
}

void FolderStack::noteOpen(std::size_t level) {
  open_.push_back(level);
  if (open_.size() > descriptors_) closeOne();
}

// Closes the level between the highest and the lowest whose neighbours are closest to each other
// relative to their distance from the lowest. So the open ones are denser the lower they are, and
// reopening one takes few steps, wherever the walk returns to.
void FolderStack::closeOne() {
  const std::size_t lowest = open_.back();
  std::size_t best = 1;
  double smallest = 0;
  for (std::size_t i = 1; i + 1 < open_.size(); ++i) {
    const double gap = static_cast<double>(open_[i + 1] - open_[i - 1]) /
                       static_cast<double>(lowest - open_[i] + 1);
    if (i == 1 || gap < smallest) {
      best = i;
      smallest = gap;
    }
  }
  levels_[open_[best]].descriptor.reset();
  open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(best));
}

}  // namespace paddock::copyprivs
