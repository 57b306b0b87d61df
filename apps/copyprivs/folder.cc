#include "copyprivs/folder.h"

#include <fcntl.h>

#include <cerrno>
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

Visit visitOf(const ObjectStatus& folder, Visit above, WalkRounds& rounds) {
  VisitedFolders& visited = rounds.visited();
  const bool isNew = visited.add(folder);
  if (rounds.isFirst()) return isNew ? Visit::whole : Visit::again;
  // Where nothing came to the folder above, its folders are those of the round before.
  const bool isKnown = !isNew || (!visited.isComplete() && above == Visit::folders);
  if (isKnown) {
    return rounds.isOfTheOneBefore(folder.modified) ? Visit::again : Visit::folders;
  }
  return visited.isComplete() ? Visit::whole : Visit::again;
}

Folder::Folder(Pointer above, std::string name, const ObjectStatus& status, Levels::Pointer inside,
               Visit visit, bool isSet)
    : above_(std::move(above)),
      name_(std::move(name)),
      pathLength_((above_ ? above_->pathLength_ + 1 : 0) + name_.size()),
      device_(status.device),
      inode_(status.inode),
      modified_(status.modified),
      changed_(status.changed),
      levels_(std::move(inside)),
      visit_(visit),
      isSet_(isSet) {}

Folder::~Folder() {
  // Iteratively: a tree may be deeper than the call stack allows.
  for (Pointer next = std::move(above_); next && next.use_count() == 1;) {
    next = std::exchange(next->above_, nullptr);
  }
}

bool Folder::is(const ObjectStatus& status) const {
  return status.device == device_ && status.inode == inode_;
}

bool Folder::isAsEncountered(const ObjectStatus& status) const {
  return status.modified == modified_ && (isSet_ || status.changed == changed_);
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

namespace {

int holdOnly(int folder, const char* name, FileDescriptor& object) {
  int number = -1;
  const int error =
      errnoOf([&] { return ::openat(folder, name, O_PATH | O_NOFOLLOW | O_CLOEXEC); }, &number);
  if (error == 0) object = FileDescriptor(number);
  return error;
}

}  // namespace

int hold(int folder, const char* name, FileDescriptor& object, ObjectStatus& status) {
  const int error = holdOnly(folder, name, object);
  return error != 0 ? error : statusOf(object.get(), status);
}

int holdInside(int folder, const char* name, const ObjectStatus& tree, FileDescriptor& object,
               ObjectStatus& status) {
  int error = holdOnly(folder, name, object);
  if (error == 0) error = placeOf(object.get(), status);
  if (error != 0) return error;
  return isOnMount(status, tree) ? statusOf(object.get(), status) : EXDEV;
}

bool isOnMount(const ObjectStatus& status, const ObjectStatus& tree) {
  if (status.mount != tree.mount) return false;
  // Where the kernel does not report the mount.
  return status.mount != 0 || status.device == tree.device;
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
