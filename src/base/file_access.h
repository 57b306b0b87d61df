// Small files that are read or replaced whole, and private folders of the process.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace paddock {

// A file descriptor that closes itself.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { reset(); }

  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  int release() { return std::exchange(number_, -1); }
  // Preserves errno: closing happens on error paths that errno describes.
  void reset();

 private:
  int number_ = -1;
};

// The bytes of a regular file; nullopt when there is none at `path`. Throws std::system_error for
// every other failure, EFBIG for a file of more than `limit` bytes.
std::optional<std::string> readSmallFile(const std::string& path, std::size_t limit);

// Writes all bytes; returns false with errno set on failure.
bool writeAll(int descriptor, std::string_view bytes);

// Atomically replaces the file NAME in the open folder with a new one of the given mode: temporary
// file, fsync, rename, fsync of the folder. Throws std::system_error.
void replaceFile(int folder, const std::string& name, std::string_view bytes, mode_t mode);

// Opens a private folder of the process, creating it and missing parents first. It must be owned by
// the user of this process, be no symlink, and not be writable by others. Throws std::system_error.
FileDescriptor openOwnFolder(const std::string& path, mode_t mode);

}  // namespace paddock
