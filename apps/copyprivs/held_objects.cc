#include "copyprivs/held_objects.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "base/system_call.h"

namespace paddock::copyprivs {

namespace {

// The kernel makes room for as many bytes as are asked for.
constexpr std::size_t kUsualSize = 1024;
constexpr std::size_t kLargestSize = 65536;

// The descriptor is open, so what is not there is /proc.
int named(int error) { return error == ENOENT ? ENOSYS : error; }

}  // namespace

void HeldObjects::enterFolder() {
  struct statfs system {};
  if (::chdir(folder_.c_str()) == 0 && ::statfs(".", &system) == 0 &&
      system.f_type == PROC_SUPER_MAGIC) {
    folder_.clear();
  }
}

int HeldObjects::get(int object, const std::string& name, std::string& value) const {
  const std::string path = nameOf(object);
  std::array<char, kUsualSize> buffer;
  std::size_t size = 0;
  value.clear();
  int error = errnoOf(
      [&] { return ::getxattr(path.c_str(), name.c_str(), buffer.data(), buffer.size()); }, &size);
  if (error == 0) value.assign(buffer.data(), size);
  if (error != ERANGE) return named(error);
  value.resize(kLargestSize);
  error = errnoOf(
      [&] { return ::getxattr(path.c_str(), name.c_str(), value.data(), value.size()); }, &size);
  value.resize(error == 0 ? size : 0);
  return named(error);
}

int HeldObjects::set(int object, const std::string& name, std::string_view value) const {
  const std::string path = nameOf(object);
  return named(errnoOf(
      [&] { return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0); }));
}

int HeldObjects::remove(int object, const std::string& name) const {
  const std::string path = nameOf(object);
  return named(errnoOf([&] { return ::removexattr(path.c_str(), name.c_str()); }));
}

int HeldObjects::changeMode(int object, mode_t mode) const {
  const std::string path = nameOf(object);
  return named(errnoOf([&] { return ::chmod(path.c_str(), mode); }));
}

int HeldObjects::changeOwner(int object, std::uint32_t uid, std::uint32_t gid) {
  return errnoOf([&] { return ::fchownat(object, "", uid, gid, AT_EMPTY_PATH); });
}

std::string HeldObjects::pathOf(int object) const {
  const std::string link = nameOf(object);
  std::array<char, PATH_MAX> path;
  std::size_t length = 0;
  const int error =
      errnoOf([&] { return ::readlink(link.c_str(), path.data(), path.size()); }, &length);
  return error == 0 && length < path.size() ? std::string(path.data(), length) : std::string();
}

}  // namespace paddock::copyprivs
