#include "copyprivs/object_access.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <climits>

#include "base/system_call.h"

namespace paddock::copyprivs {

namespace {

// The kernel allocates as many bytes as are requested. A larger value is read by descriptor.
constexpr std::size_t kUsualSize = 1024;

}  // namespace

NamedObjects::NamedObjects() : isUsable_(::unshare(CLONE_FS) == 0) {}

bool NamedObjects::enter(int folder) { return isUsable_ && ::fchdir(folder) == 0; }

int NamedObjects::get(const char* object, const char* name, std::string& value) {
  std::array<char, kUsualSize> buffer;
  std::size_t size = 0;
  value.clear();
  const int error =
      errnoOf([&] { return ::lgetxattr(object, name, buffer.data(), buffer.size()); }, &size);
  if (error == 0) value.assign(buffer.data(), size);
  return error;
}

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
