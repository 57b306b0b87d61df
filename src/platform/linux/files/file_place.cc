#include "platform/linux/files/file_place.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr std::size_t kSizeLimit = std::size_t{64} << 20U;
constexpr std::size_t kChunk = std::size_t{64} << 10U;
constexpr int kLinkLimit = 40;
constexpr mode_t kPermissionBits = 07777;

constexpr std::int64_t kNanoseconds = 1'000'000'000;
// Longer than the times of files are apart on any file system in use.
constexpr std::int64_t kSettlingTime = 2 * kNanoseconds;

std::int64_t nanosecondsOf(const timespec& time) {
  return time.tv_sec * kNanoseconds + time.tv_nsec;
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
  // The path may have been replaced concurrently.
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

}  // namespace

int pathError(const std::string& path) {
  if (path.empty()) return ENOENT;
  return path.find('\0') == std::string::npos ? 0 : EINVAL;
}

int kindError(mode_t mode) {
  if (S_ISREG(mode)) return 0;
  return S_ISDIR(mode) ? EISDIR : EINVAL;
}

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

int findPlace(const std::string& path, FilePlace& place) {
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

int readRegular(const FileDescriptor& file, const struct stat& status, std::string& contents) {
  contents.clear();
  int error = static_cast<std::size_t>(status.st_size) > kSizeLimit ? EFBIG : 0;
  if (error == 0) {
    contents.reserve(static_cast<std::size_t>(status.st_size) + kChunk);
    error = readAll(file.get(), contents);
  }
  if (error != 0) contents.clear();
  return error;
}

int readRegular(const std::string& path, std::string& contents, struct stat& status) {
  contents.clear();
  FileDescriptor file;
  const int error = openRegular(path, file, status);
  return error != 0 ? error : readRegular(file, status, contents);
}

FileIdentity identityOf(const struct stat& status) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t changed = nanosecondsOf(status.st_ctim);
  return {status.st_dev,
          status.st_ino,
          static_cast<std::uint64_t>(status.st_size),
          nanosecondsOf(status.st_mtim),
          changed,
          nanosecondsOf(now) - changed > kSettlingTime};
}

FileOwnership ownershipOf(const struct stat& status) {
  return {status.st_uid, status.st_gid, status.st_mode & kPermissionBits};
}

}  // namespace paddock
