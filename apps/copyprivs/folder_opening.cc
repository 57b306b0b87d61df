#include "copyprivs/folder_opening.h"

#include <fcntl.h>

#include "base/system_call.h"

namespace paddock::copyprivs {

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
    // What is above is only asked who it is: nothing is done from there.
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
