#include "copyprivs/own_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "base/system_call.h"

namespace paddock::copyprivs {

OwnDescriptors::OwnDescriptors()
    : folder_(retryOnInterrupt(
          [] { return ::open("/proc/thread-self/fd", O_PATH | O_DIRECTORY | O_CLOEXEC); })) {}

int OwnDescriptors::reopen(int held, FileDescriptor& file) const {
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOATIME | O_CLOEXEC;
  const std::string name = std::to_string(held);
  int number = -1;
  const int error = errnoOf([&] { return ::openat(folder_.get(), name.c_str(), kFlags); }, &number);
  if (error == 0) file = FileDescriptor(number);
  return error;
}

std::string OwnDescriptors::pathOf(int object) const {
  const std::string name = std::to_string(object);
  std::array<char, PATH_MAX> path;
  std::size_t length = 0;
  const int error = errnoOf(
      [&] { return ::readlinkat(folder_.get(), name.c_str(), path.data(), path.size()); }, &length);
  return error == 0 && length < path.size() ? std::string(path.data(), length) : std::string();
}

}  // namespace paddock::copyprivs
