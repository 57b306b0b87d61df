#include "volumes/volume_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr int kSafely = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

int look(const std::string& path, struct stat& status) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  return errnoOf([&] { return ::lstat(path.c_str(), &status); });
}

int kindError(mode_t mode) {
  if (S_ISREG(mode)) return 0;
  if (S_ISLNK(mode)) return ELOOP;
  return S_ISDIR(mode) ? EISDIR : EINVAL;
}

}  // namespace

int openRegularFile(const std::string& path, FileDescriptor& file, uid_t& owner) {
  struct stat status {};
  if (const int error = look(path, status); error != 0) return error;
  if (const int error = kindError(status.st_mode); error != 0) return error;
  int descriptor = -1;
  const int failed = errnoOf([&] { return ::open(path.c_str(), O_RDONLY | kSafely); }, &descriptor);
  if (failed != 0) return failed;
  FileDescriptor opened(descriptor);
  // Another object may have come to the path meanwhile.
  const int unknown = errnoOf([&] { return ::fstat(opened.get(), &status); });
  if (unknown != 0) return unknown;
  if (const int error = kindError(status.st_mode); error != 0) return error;
  owner = status.st_uid;
  file = std::move(opened);
  return 0;
}

int createFile(const std::string& path, mode_t mode, FileDescriptor& file) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  int descriptor = -1;
  const int error = errnoOf(
      [&] { return ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | kSafely, mode); }, &descriptor);
  if (error == 0) file = FileDescriptor(descriptor);
  return error;
}

bool isTaken(const std::string& path) {
  struct stat status {};
  return look(path, status) == 0;
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return look(path, status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace paddock
