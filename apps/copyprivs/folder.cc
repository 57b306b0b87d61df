#include "copyprivs/folder.h"

#include <utility>
#include <vector>

namespace paddock::copyprivs {

Folder::Folder(Pointer above, std::string name, const ObjectStatus& status, Levels::Pointer inside)
    : above_(std::move(above)),
      name_(std::move(name)),
      pathLength_((above_ ? above_->pathLength_ + 1 : 0) + name_.size()),
      device_(status.device),
      inode_(status.inode),
      levels_(std::move(inside)) {}

Folder::~Folder() {
  // One after the other: a tree may be deeper than a stack.
  for (Pointer next = std::move(above_); next && next.use_count() == 1;) {
    next = std::exchange(next->above_, nullptr);
  }
}

bool Folder::is(const ObjectStatus& status) const {
  return status.device == device_ && status.inode == inode_;
}

std::string Folder::path() const {
  std::vector<const Folder*> folders;
  for (const Folder* folder = this; folder != nullptr; folder = folder->above_.get()) {
    folders.push_back(folder);
  }
  std::string path = folders.back()->name_;
  folders.pop_back();
  while (!folders.empty()) {
    if (!path.ends_with('/')) path += '/';
    path += folders.back()->name_;
    folders.pop_back();
  }
  return path;
}

std::string Folder::pathOf(const std::string& name) const {
  std::string path = this->path();
  if (!path.ends_with('/')) path += '/';
  return path + name;
}

}  // namespace paddock::copyprivs
