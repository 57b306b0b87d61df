#include "platform/linux/files/linux_status_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "base/file_access.h"
#include "base/system_call.h"

namespace paddock {

namespace {

// One byte more than the limit detects a file that is too large.
constexpr std::size_t kBlock = 64U << 10U;

bool hasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

bool isOwnFile(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == ::geteuid() && status.st_nlink == 1 &&
         status.st_size <= static_cast<off_t>(kMaximumStatusFile);
}

// An existing file, held together with its folder: concurrent changes of the path above have no
// effect.
struct HeldFile {
  FileDescriptor folder;
  std::string name;
  FileDescriptor file;  // an O_PATH one: a device, or a FIFO, is never opened for checking
};

FileDescriptor openWith(int folder, const char* name, int flags) {
  return FileDescriptor(
      retryOnInterrupt([&] { return ::openat(folder, name, flags | O_CLOEXEC); }));
}

// Absent when it is not a file of this process's user.
std::optional<HeldFile> holdOwnFile(const std::string& path) {
  if (hasNul(path)) return std::nullopt;
  const std::size_t nameAt = path.rfind('/') + 1;
  HeldFile held;
  held.name = path.substr(nameAt);
  held.folder =
      openWith(AT_FDCWD, nameAt == 0 ? "." : path.substr(0, nameAt).c_str(), O_PATH | O_DIRECTORY);
  if (!held.folder) return std::nullopt;
  held.file = openWith(held.folder.get(), held.name.c_str(), O_PATH | O_NOFOLLOW);
  struct stat status {};
  if (!held.file || ::fstat(held.file.get(), &status) != 0 || !isOwnFile(status)) {
    return std::nullopt;
  }
  return held;
}

// Of a file that is held.
std::optional<std::string> contentsOf(const FileDescriptor& held) {
  const std::string name = "/proc/self/fd/" + std::to_string(held.get());
  const FileDescriptor file = openWith(AT_FDCWD, name.c_str(), O_RDONLY);
  if (!file) return std::nullopt;
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

int unlinkHeld(const HeldFile& held) {
  return errnoOf([&] { return ::unlinkat(held.folder.get(), held.name.c_str(), 0); });
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
  const auto held = holdOwnFile(path);
  const auto text = held ? contentsOf(held->file) : std::nullopt;
  return text ? reader_(*text) : std::nullopt;
}

int LinuxStatusFiles::remove(const std::string& path) {
  const auto held = holdOwnFile(path);
  const auto text = held ? contentsOf(held->file) : std::nullopt;
  return text && reader_(*text) ? unlinkHeld(*held) : EPERM;
}

int LinuxStatusFiles::discard(const std::string& path) {
  const auto held = holdOwnFile(path);
  const auto text = held ? contentsOf(held->file) : std::nullopt;
  return text && text->empty() ? unlinkHeld(*held) : EPERM;
}

}  // namespace paddock
