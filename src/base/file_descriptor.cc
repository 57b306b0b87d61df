#include "base/file_descriptor.h"

#include <cerrno>

namespace paddock {

void FileDescriptor::reset() {
  if (number_ < 0) return;
  const int saved = errno;
  // Not retried after EINTR: Linux has closed the descriptor by then.
  ::close(std::exchange(number_, -1));
  errno = saved;
}

}  // namespace paddock
