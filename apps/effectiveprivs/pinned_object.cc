#include "effectiveprivs/pinned_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <utility>

#include "base/system_call.h"
#include "effectiveprivs/effectiveprivs_failure.h"
#include "platform/linux/files/file_object.h"

namespace paddock::effectiveprivs {

namespace {

// The number of lookups of a file that is being moved.
constexpr int kAttempts = 3;

FileDescriptor openFolderAt(int at, const char* name, int& error) {
  int number = -1;
  error = errnoOf([&] { return ::openat(at, name, O_PATH | O_DIRECTORY | O_CLOEXEC); }, &number);
  return FileDescriptor(number);
}

// The path by which the kernel knows the open object now; `name` is what messages call it.
std::string pathOf(int object, const std::string& name) {
  std::array<char, PATH_MAX> buffer{};
  const std::string link = "/proc/self/fd/" + std::to_string(object);
  std::size_t size = 0;
  const int error =
      errnoOf([&] { return ::readlink(link.c_str(), buffer.data(), buffer.size()); }, &size);
  if (error != 0) throw failureOf("find out where", name + " is", error);
  return {buffer.data(), size};
}

}  // namespace

PinnedObject::PinnedObject(const std::string& path) : path_(path) {
  int error = openObject(path, object_);
  if (error == 0) error = errnoOf([&] { return ::fstat(object_.get(), &status_); });
  if (error != 0) throw failureOf("open", path, error);
}

PinnedObject::PinnedObject(FileDescriptor object, std::string path)
    : path_(std::move(path)), object_(std::move(object)) {
  const int error = errnoOf([&] { return ::fstat(object_.get(), &status_); });
  if (error != 0) throw failureOf("look at", path_, error);
}

std::string PinnedObject::realPath() const { return pathOf(object_.get(), path_); }

std::optional<PinnedObject> PinnedObject::parent() const {
  return isFolder() ? parentOfFolder() : parentOfFile();
}

std::optional<PinnedObject> PinnedObject::parentOfFolder() const {
  int error = 0;
  FileDescriptor folder = openFolderAt(object_.get(), "..", error);
  if (error != 0) throw failureOf("open", "the folder around " + path_, error);
  const int number = folder.get();
  PinnedObject parent(std::move(folder), pathOf(number, "the folder around " + path_));
  if (isSameAs(parent.status_)) return std::nullopt;
  return parent;
}

PinnedObject PinnedObject::parentOfFile() const {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::string path = pathOf(object_.get(), path_);
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) break;  // a socket or the like, which is in no folder
    const std::string above = slash == 0 ? "/" : path.substr(0, slash);
    int error = 0;
    FileDescriptor folder = openFolderAt(AT_FDCWD, above.c_str(), error);
    struct stat found {};
    const char* name = path.c_str() + slash + 1;
    if (error == 0)
      error = errnoOf([&] { return ::fstatat(folder.get(), name, &found, AT_SYMLINK_NOFOLLOW); });
    // The path may name another file by now.
    if (error == 0 && isSameAs(found)) return {std::move(folder), above};
  }
  throw Failure("cannot find the folder that " + path_ + " is in: it was moved or removed");
}

bool PinnedObject::isSameAs(const struct stat& other) const {
  return status_.st_dev == other.st_dev && status_.st_ino == other.st_ino;
}

}  // namespace paddock::effectiveprivs
