#include "platform/linux/linux_status_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "base/file_descriptor.h"
#include "base/system_call.h"

namespace paddock {

namespace {

// One byte more than is read tells a file that is too large.
constexpr std::size_t kBlock = 64U << 10U;

bool hasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

bool isOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && status.st_nlink == 1 &&
         status.st_size <= static_cast<off_t>(kMaximumStatusFile);
}

// Null when it is not a file of this process's user. A FIFO is not waited for.
FileDescriptor openOwnFile(const std::string& path, struct stat& status) {
  if (hasNul(path)) return {};
  FileDescriptor file(retryOnInterrupt([&path] {
    return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  if (!file || ::fstat(file.get(), &status) != 0 || !isOwnFile(status)) return {};
  return file;
}

std::optional<std::string> contentsOf(const FileDescriptor& file) {
  std::string text;
  std::vector<char> block(kBlock);
  for (;;) {
    const auto count =
        retryOnInterrupt([&] { return ::read(file.get(), block.data(), block.size()); });
    if (count < 0) return std::nullopt;
    if (count == 0) return text;
    text.append(block.data(), static_cast<std::size_t>(count));
    if (text.size() > kMaximumStatusFile) return std::nullopt;
  }
}

// A tree of its own may come without the folder, which the system always has.
void makeFolderOf(const std::string& path) {
  constexpr mode_t kSharedFolderMode = 01777;
  const std::string folder = path.substr(0, path.rfind('/'));
  if (::mkdir(folder.c_str(), kSharedFolderMode) == 0) {
    (void)::chmod(folder.c_str(), kSharedFolderMode);
  }
}

}  // namespace

int LinuxStatusFiles::create(const std::string& pathTemplate, std::string& path) {
  path.clear();
  std::string name = root_ + pathTemplate;
  if (!root_.empty()) makeFolderOf(name);
  const FileDescriptor file(::mkostemp(name.data(), O_CLOEXEC));
  if (!file) return errno;
  path = std::move(name);
  return 0;
}

bool LinuxStatusFiles::exists(const std::string& path) {
  struct stat status {};
  return !hasNul(path) && errnoOf([&] { return ::lstat(path.c_str(), &status); }) == 0;
}

std::optional<Dictionary> LinuxStatusFiles::read(const std::string& path) {
  struct stat status {};
  const FileDescriptor file = openOwnFile(path, status);
  if (!file) return std::nullopt;
  const auto text = contentsOf(file);
  return text ? reader_(*text) : std::nullopt;
}

int LinuxStatusFiles::remove(const std::string& path) {
  struct stat opened {};
  const FileDescriptor file = openOwnFile(path, opened);
  struct stat named {};
  if (!file || ::lstat(path.c_str(), &named) != 0 || named.st_ino != opened.st_ino ||
      named.st_dev != opened.st_dev) {
    return EPERM;
  }
  return errnoOf([&] { return ::unlink(path.c_str()); });
}

}  // namespace paddock
