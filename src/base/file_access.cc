#include "base/file_access.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "base/system_call.h"

namespace paddock {

void FileDescriptor::reset() {
  if (number_ < 0) return;
  const int saved = errno;
  // Not retried after EINTR: Linux has closed the descriptor by then.
  ::close(std::exchange(number_, -1));
  errno = saved;
}

namespace {

constexpr mode_t kParentMode = 0755;
constexpr std::size_t kBlock = 64U << 10U;

[[noreturn]] void fail(std::string_view operation, const std::string& path) {
  throw systemError(errno, operation, path);
}

void makeParents(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string parent = path.substr(0, slash);
    if (::mkdir(parent.c_str(), kParentMode) != 0 && errno != EEXIST) fail("mkdir", parent);
  }
}

}  // namespace

std::optional<std::string> readSmallFile(const std::string& path, std::size_t limit) {
  const FileDescriptor file(retryOnInterrupt(
      [&path] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!file) {
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    fail("open", path);
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) fail("stat", path);
  if (!S_ISREG(status.st_mode)) throw systemError(EINVAL, "not a regular file:", path);
  std::string text;
  std::vector<char> block(kBlock);
  for (;;) {
    const auto count = retryOnInterrupt(
        [&file, &block] { return ::read(file.get(), block.data(), block.size()); });
    if (count < 0) fail("read", path);
    if (count == 0) return text;
    text.append(block.data(), static_cast<std::size_t>(count));
    if (text.size() > limit) throw systemError(EFBIG, "read", path);
  }
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = retryOnInterrupt(
        [descriptor, bytes] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void replaceFile(int folder, const std::string& name, std::string_view bytes, mode_t mode) {
  // One writer per name at a time, so one temporary name per name will do; what a killed process
  // left behind is overwritten.
  const std::string temporary = "." + name + ".new";
  ::unlinkat(folder, temporary.c_str(), 0);
  FileDescriptor file(::openat(folder, temporary.c_str(),
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!file) fail("create", temporary);
  if (::fchmod(file.get(), mode) != 0 || !writeAll(file.get(), bytes) || ::fsync(file.get()) != 0 ||
      ::renameat(folder, temporary.c_str(), folder, name.c_str()) != 0) {
    const int failed = errno;
    ::unlinkat(folder, temporary.c_str(), 0);
    throw systemError(failed, "write", name);
  }
  if (::fsync(folder) != 0) fail("fsync of the folder of", name);
}

FileDescriptor openOwnFolder(const std::string& path, mode_t mode) {
  makeParents(path);
  if (::mkdir(path.c_str(), mode) != 0 && errno != EEXIST) fail("mkdir", path);
  FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) fail("open folder", path);
  struct stat status {};
  if (::fstat(folder.get(), &status) != 0) fail("stat", path);
  if (status.st_uid != ::geteuid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw systemError(EPERM, "others may write to folder", path);
  }
  return folder;
}

}  // namespace paddock
