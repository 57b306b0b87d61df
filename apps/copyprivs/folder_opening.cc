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

}  // namespace paddock::copyprivs
