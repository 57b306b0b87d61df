#include "platform/linux/linux_text_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <optional>
#include <utility>

#include "base/file_descriptor.h"
#include "base/system_call.h"
#include "platform/linux/new_file.h"

namespace paddock {

namespace {

constexpr std::size_t kSizeLimit = std::size_t{64} << 20U;
constexpr std::size_t kChunk = std::size_t{64} << 10U;
constexpr int kLinkLimit = 40;
constexpr mode_t kModeOfNewFiles = 0644;
constexpr unsigned kOwn = static_cast<unsigned>(-1);  // see chown(2)
constexpr mode_t kPermissionBits = 07777;

int pathError(const std::string& path) {
  if (path.empty()) return ENOENT;
  return path.find('\0') == std::string::npos ? 0 : EINVAL;
}

// 0 for a regular file.
int kindError(mode_t mode) {
  if (S_ISREG(mode)) return 0;
  return S_ISDIR(mode) ? EISDIR : EINVAL;
}

// A place in a folder, whose last component is no link.
struct Place {
  FileDescriptor folder;
  std::string name;
  std::optional<struct stat> present;
};

// "a/b" as folder "a" and name "b"; a slash at the end stays with the name.
std::pair<std::string, std::string> splitPath(const std::string& path) {
  const std::size_t slash = path.find_last_of('/', path.find_last_not_of('/'));
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

int openFolder(int base, const std::string& path, FileDescriptor& folder) {
  int descriptor = -1;
  const int error =
      errnoOf([&] { return ::openat(base, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); },
              &descriptor);
  if (error == 0) folder = FileDescriptor(descriptor);
  return error;
}

int readLink(int folder, const std::string& name, std::string& target) {
  std::array<char, PATH_MAX> buffer{};
  std::size_t length = 0;
  const int error = errnoOf(
      [&] { return ::readlinkat(folder, name.c_str(), buffer.data(), buffer.size()); }, &length);
  if (error != 0) return error;
  if (length == buffer.size()) return ENAMETOOLONG;
  target.assign(buffer.data(), length);
  return 0;
}

// Follows links at the end of `path` to the place that they lead to, whether something is there
// or not; the folder's descriptor stays on it whatever happens to the names above.
int findPlace(const std::string& path, Place& place) {
  if (const int error = pathError(path); error != 0) return error;
  std::string rest = path;
  for (int links = 0; links <= kLinkLimit; ++links) {
    const auto split = splitPath(rest);
    const std::string& name = split.second;
    const int base = place.folder ? place.folder.get() : AT_FDCWD;
    if (const int error = openFolder(base, split.first, place.folder); error != 0) return error;
    place.name = name;
    struct stat status {};
    const int error = errnoOf([&place, &status] {
      return ::fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    });
    if (error == ENOENT) return 0;
    if (error != 0) return error;
    if (!S_ISLNK(status.st_mode)) {
      place.present = status;
      return 0;
    }
    if (const int failed = readLink(place.folder.get(), name, rest); failed != 0) return failed;
  }
  return ELOOP;
}

// Opens a regular file and nothing else: a pipe or a device is not even opened.
int openRegular(const std::string& path, FileDescriptor& file, struct stat& status) {
  if (const int error = pathError(path); error != 0) return error;
  const int missing = errnoOf([&] { return ::stat(path.c_str(), &status); });
  if (missing != 0) return missing;
  if (const int error = kindError(status.st_mode); error != 0) return error;
  int descriptor = -1;
  const int error =
      errnoOf([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); },
              &descriptor);
  if (error != 0) return error;
  file = FileDescriptor(descriptor);
  // Another object may have come to the path meanwhile.
  const int unreadable = errnoOf([&] { return ::fstat(file.get(), &status); });
  return unreadable != 0 ? unreadable : kindError(status.st_mode);
}

int readAll(int file, std::string& contents) {
  std::size_t length = 0;
  while (true) {
    contents.resize(length + kChunk);
    std::size_t count = 0;
    const int error =
        errnoOf([&] { return ::read(file, contents.data() + length, kChunk); }, &count);
    if (error != 0) return error;
    length += count;
    contents.resize(length);
    if (count == 0) return 0;
    if (length > kSizeLimit) return EFBIG;
  }
}

int readWithStatus(const std::string& path, std::string& contents, struct stat& status) {
  contents.clear();
  FileDescriptor file;
  int error = openRegular(path, file, status);
  if (error == 0 && static_cast<std::size_t>(status.st_size) > kSizeLimit) error = EFBIG;
  if (error == 0) {
    contents.reserve(static_cast<std::size_t>(status.st_size) + kChunk);
    error = readAll(file.get(), contents);
  }
  if (error != 0) contents.clear();
  return error;
}

bool isFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

FileOwnership ownershipOf(const struct stat& status) {
  return {status.st_uid, status.st_gid, status.st_mode & kPermissionBits};
}

}  // namespace

int LinuxTextFiles::read(const std::string& path, std::string& contents) {
  struct stat status {};
  return readWithStatus(path, contents, status);
}

int LinuxTextFiles::replace(const std::string& path, const std::string& contents) {
  return replaceAs(path, contents, [](const FileOwnership* present) {
    return present != nullptr ? *present : FileOwnership{kOwn, kOwn, kModeOfNewFiles};
  });
}

int LinuxTextFiles::replaceAs(const std::string& path, const std::string& contents,
                              const OwnershipRule& rule) {
  Place place;
  if (const int error = findPlace(path, place); error != 0) return error;
  std::optional<FileOwnership> present;
  if (place.present) {
    if (const int error = kindError(place.present->st_mode); error != 0) return error;
    present = ownershipOf(*place.present);
  }
  NewFile file(place.folder.get(), place.name);
  if (const int error = file.create(); error != 0) return error;
  if (const int error = file.write(contents); error != 0) return error;
  const int error = file.setOwnership(rule(present ? &*present : nullptr));
  return error != 0 ? error : file.putInPlace();
}

int LinuxTextFiles::copyOnce(const std::string& from, const std::string& to) {
  if (const int error = pathError(to); error != 0) return error;
  const auto [folderPath, name] = splitPath(to);
  FileDescriptor folder;
  if (const int error = openFolder(AT_FDCWD, folderPath, folder); error != 0) return error;
  struct stat present {};
  if (::fstatat(folder.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  std::string contents;
  struct stat status {};
  if (const int error = readWithStatus(from, contents, status); error != 0) return error;
  NewFile copy(folder.get(), name);
  if (const int error = copy.create(); error != 0) return error;
  if (const int error = copy.write(contents); error != 0) return error;
  const int error = copy.setOwnership(ownershipOf(status));
  return error != 0 ? error : copy.putInEmptyPlace();
}

int LinuxTextFiles::removeFile(const std::string& folderPath, const std::string& name) {
  if (!isFileName(name)) return EINVAL;
  if (const int error = pathError(folderPath); error != 0) return error;
  FileDescriptor folder;
  if (const int error = openFolder(AT_FDCWD, folderPath, folder); error != 0) return error;
  // First, since a file system that is read-only refuses the removal of what is not there, too.
  struct stat present {};
  const int missing =
      errnoOf([&] { return ::fstatat(folder.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW); });
  if (missing != 0) return missing;
  return errnoOf([&] { return ::unlinkat(folder.get(), name.c_str(), 0); });
}

bool LinuxTextFiles::exists(const std::string& path) {
  struct stat status {};
  return pathError(path) == 0 && errnoOf([&] { return ::stat(path.c_str(), &status); }) == 0;
}

}  // namespace paddock
