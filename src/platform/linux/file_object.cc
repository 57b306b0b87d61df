#include "platform/linux/file_object.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include <array>

#include "base/system_call.h"

namespace paddock {

namespace {

// Most values fit here; see limits of xattr(7) for the other.
constexpr std::size_t kUsualSize = 1024;
constexpr std::size_t kLargestSize = 65536;

class LinuxExtendedAttributes final : public ExtendedAttributes {
 public:
  int get(int object, const std::string& name, std::string& value) const override {
    value.clear();
    const std::string path = objectPath(object);
    std::array<char, kUsualSize> buffer;
    std::size_t size = 0;
    int error = errnoOf(
        [&] { return ::getxattr(path.c_str(), name.c_str(), buffer.data(), buffer.size()); },
        &size);
    if (error == 0) {
      value.assign(buffer.data(), size);
      return 0;
    }
    if (error != ERANGE) return objectPathError(error);
    value.resize(kLargestSize);
    error = errnoOf(
        [&] { return ::getxattr(path.c_str(), name.c_str(), value.data(), value.size()); }, &size);
    value.resize(error == 0 ? size : 0);
    return objectPathError(error);
  }

  int set(int object, const std::string& name, std::string_view value) const override {
    const std::string path = objectPath(object);
    return objectPathError(errnoOf(
        [&] { return ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0); }));
  }

  int remove(int object, const std::string& name) const override {
    const std::string path = objectPath(object);
    return objectPathError(errnoOf([&] { return ::removexattr(path.c_str(), name.c_str()); }));
  }
};

}  // namespace

int openObject(const std::string& path, FileDescriptor& object) {
  object.reset();
  if (path.find('\0') != std::string::npos) return ENOENT;
  int number = -1;
  const int error = errnoOf([&] { return ::open(path.c_str(), O_PATH | O_CLOEXEC); }, &number);
  if (error == 0) object = FileDescriptor(number);
  return error;
}

std::string objectPath(int object) { return "/proc/self/fd/" + std::to_string(object); }

// The descriptor is open, so what is not there is /proc.
int objectPathError(int error) { return error == ENOENT ? ENOSYS : error; }

const ExtendedAttributes& linuxExtendedAttributes() {
  static const LinuxExtendedAttributes attributes;
  return attributes;
}

}  // namespace paddock
