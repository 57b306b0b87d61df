#include "platform/linux/files/file_object.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>

#include "base/system_call.h"
#include "platform/linux/files/path_walk.h"

namespace paddock {

namespace {

// Most values fit here; see limits of xattr(7) for the other.
constexpr std::size_t kUsualSize = 1024;
constexpr std::size_t kLargestSize = 65536;

// Which calls take no O_PATH descriptor, they say with EBADF; its name in /proc does for them.
// `direct` takes the descriptor, `named` that name.
template <typename Result, typename Direct, typename Named>
int onObject(int object, Result* result, Direct direct, Named named) {
  const int error = errnoOf([&] { return direct(object); }, result);
  if (error != EBADF) return error;
  const std::string path = "/proc/self/fd/" + std::to_string(object);
  const int failed = errnoOf([&] { return named(path.c_str()); }, result);
  // The descriptor is open, so what is not there is /proc.
  return failed == ENOENT ? ENOSYS : failed;
}
template <typename Direct, typename Named>
int onObject(int object, Direct direct, Named named) {
  int ignored = 0;
  return onObject(object, &ignored, direct, named);
}

// Reads into the buffer; `size` of what is there.
int readInto(int object, const char* name, char* buffer, std::size_t room, std::size_t* size) {
  return onObject(
      object, size, [&](int number) { return ::fgetxattr(number, name, buffer, room); },
      [&](const char* path) { return ::getxattr(path, name, buffer, room); });
}

class LinuxExtendedAttributes final : public ExtendedAttributes {
 public:
  int get(int object, const std::string& name, std::string& value) const override {
    value.clear();
    std::array<char, kUsualSize> buffer;
    std::size_t size = 0;
    int error = readInto(object, name.c_str(), buffer.data(), buffer.size(), &size);
    if (error == 0) value.assign(buffer.data(), size);
    if (error != ERANGE) return error;
    value.resize(kLargestSize);
    error = readInto(object, name.c_str(), value.data(), value.size(), &size);
    value.resize(error == 0 ? size : 0);
    return error;
  }

  int set(int object, const std::string& name, std::string_view value) const override {
    return onObject(
        object,
        [&](int number) {
          return ::fsetxattr(number, name.c_str(), value.data(), value.size(), 0);
        },
        [&](const char* path) {
          return ::setxattr(path, name.c_str(), value.data(), value.size(), 0);
        });
  }

  int remove(int object, const std::string& name) const override {
    return onObject(
        object, [&](int number) { return ::fremovexattr(number, name.c_str()); },
        [&](const char* path) { return ::removexattr(path, name.c_str()); });
  }
};

}  // namespace

int openObject(const std::string& path, FileDescriptor& object, PathUse use,
               std::optional<RefusedLink>* refused) {
  const int error = holdObject(path, use, object, refused);
  if (error != 0) return error;
  int number = -1;
  const int closed = errnoOf(
      [&] { return ::openat(object.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }, &number);
  if (closed == 0) object = FileDescriptor(number);
  // What is no folder, and a folder that may not be read, stay held as they are.
  if (closed == 0 || closed == ENOTDIR || closed == EACCES) return 0;
  object.reset();
  return closed;
}

int changeObjectMode(int object, mode_t mode) {
  return onObject(
      object, [&](int number) { return ::fchmod(number, mode); },
      [&](const char* path) { return ::chmod(path, mode); });
}

const ExtendedAttributes& linuxExtendedAttributes() {
  static const LinuxExtendedAttributes attributes;
  return attributes;
}

namespace {

int put(const ExtendedAttributes& attributes, int object, const std::string& name,
        const std::optional<std::string>& value) {
  if (value) return attributes.set(object, name, *value);
  const int error = attributes.remove(object, name);
  return error == ENODATA ? 0 : error;
}

// Puts the old values of the first `count` changes back. An old value that is larger may find room
// only when another one has become smaller again, hence the second round.
void undo(const ExtendedAttributes& attributes, int object, const std::vector<XattrChange>& changes,
          std::size_t count) {
  for (int round = 0; round < 2; ++round) {
    for (std::size_t i = count; i > 0; --i) {
      const XattrChange& change = changes[i - 1];
      if (change.before == change.after) continue;
      put(attributes, object, change.name, change.before);
    }
  }
}

}  // namespace

int applyChanges(const ExtendedAttributes& attributes, int object,
                 const std::vector<XattrChange>& changes) {
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (changes[i].before == changes[i].after) continue;
    const int error = put(attributes, object, changes[i].name, changes[i].after);
    if (error == 0 || (error == EOPNOTSUPP && changes[i].onlyWhereSupported)) continue;
    undo(attributes, object, changes, i);
    return error;
  }
  return 0;
}

}  // namespace paddock
