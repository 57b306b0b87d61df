#include "copyprivs/folder.h"

#include <fcntl.h>

#include <utility>
#include <vector>

#include "base/system_call.h"

namespace paddock::copyprivs {

Levels::Levels(InheritableACL* entries, Pointer above)
    : level_{entries, above ? above->composite() : nullptr}, above_(std::move(above)) {}

Levels::~Levels() {
  FreeInheritableACL(level_.entries);
  // Iteratively: there may be more levels than the call stack allows.
  for (Pointer next = std::move(above_); next && next.use_count() == 1;) {
    next = std::exchange(next->above_, nullptr);
  }
}

bool Levels::beginsWithTwoEmptyOnes() const {
  return level_.entries == nullptr && level_.next != nullptr && level_.next->entries == nullptr;
}

Levels::Pointer Levels::withEmptyBelow(const Pointer& levels) {
  if (levels && levels->beginsWithTwoEmptyOnes()) return levels;
  return std::make_shared<const Levels>(nullptr, levels);
}

Folder::Folder(Pointer above, std::string name, const ObjectStatus& status, Levels::Pointer inside)
    : above_(std::move(above)),
      name_(std::move(name)),
      pathLength_((above_ ? above_->pathLength_ + 1 : 0) + name_.size()),
      device_(status.device),
      inode_(status.inode),
      levels_(std::move(inside)) {}

Folder::~Folder() {
  // Iteratively: a tree may be deeper than the call stack allows.
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

int hold(int folder, const char* name, FileDescriptor& object, ObjectStatus& status) {
  int number = -1;
  const int error =
      errnoOf([&] { return ::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC); }, &number);
  if (error != 0) return error;
  object = FileDescriptor(number);
  return statusOf(number, status);
}

int openFolder(int held, FileDescriptor& folder) {
  int number = -1;
  const int error =
      errnoOf([&] { return ::openat(held, ".", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); },
              &number);
  if (error == 0) folder = FileDescriptor(number);
  return error;
}

bool hasItsAncestors(int descriptor, const Folder& folder) {
  FileDescriptor above;
  for (const Folder* known = folder.above().get(); known != nullptr; known = known->above().get()) {
    int next = -1;
    // Ancestors are only identified: no operation starts from them.
    const int error = errnoOf(
        [&] { return ::openat(descriptor, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }, &next);
    if (error != 0) return false;
    above = FileDescriptor(next);
    descriptor = next;
    ObjectStatus status;
    if (statusOf(descriptor, status) != 0 || !known->is(status)) return false;
  }
  return true;
}

}  // namespace paddock::copyprivs
