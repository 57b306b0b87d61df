#include "platform/linux/files/replaced_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/system_call.h"
#include "platform/linux/files/file_place.h"

namespace paddock {

namespace {

// Whether any process has the file open for writing, tested with a lease: see F_SETLEASE in
// fcntl(2).
bool hasWriters(const FileDescriptor& file) {
  if (::fcntl(file.get(), F_SETLEASE, F_RDLCK) != 0) return errno == EAGAIN;
  ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
  return false;
}

FileDescriptor openForReading(const FileDescriptor& folder, const std::string& name) {
  int descriptor = -1;
  const int error = errnoOf(
      [&] {
        return ::openat(folder.get(), name.c_str(),
                        O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
      },
      &descriptor);
  return error == 0 ? FileDescriptor(descriptor) : FileDescriptor();
}

FileIdentity identityIn(const FileDescriptor& folder, const std::string& name) {
  struct stat status {};
  if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return {};
  return identityOf(status);
}

}  // namespace

bool isFile(const FileDescriptor& folder, const std::string& name, const FileIdentity& file) {
  const FileIdentity present = identityIn(folder, name);
  return present.device == file.device && present.inode == file.inode;
}

bool isUntouched(const FileDescriptor& folder, const std::string& name, const FileIdentity& file) {
  const FileDescriptor opened = openForReading(folder, name);
  // First: one who writes between the two has it open yet, or has changed it.
  if (opened.get() < 0 || hasWriters(opened)) return false;
  FileIdentity present = identityIn(folder, name);
  present.changed = file.changed;
  return present.isSameState(file);
}

LinuxReplacedFile::LinuxReplacedFile(FileDescriptor folder, std::string name)
    : folder_(std::move(folder)), name_(std::move(name)) {
  const FileDescriptor file = openForReading(folder_, name_);
  if (file.get() < 0) return;
  struct stat status {};
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  // First: later writes can only come from a process that has it open.
  openForWriting_ = hasWriters(file);
  std::string contents;
  if (readRegular(file, status, contents) == 0) contents_ = std::move(contents);
}

LinuxReplacedFile::~LinuxReplacedFile() {
  if (!stays_) ::unlinkat(folder_.get(), name_.c_str(), 0);
}

int LinuxReplacedFile::keepAs(const std::string& path) {
  stays_ = true;
  if (const int error = pathError(path); error != 0) return error;
  const auto [folderPath, name] = splitPath(path);
  FileDescriptor folder;
  if (const int error = openFolder(AT_FDCWD, folderPath, folder); error != 0) return error;
  // linkat(2) never replaces, on every file system that has hard links.
  const std::string& to = name;
  const int error =
      errnoOf([&] { return ::linkat(folder_.get(), name_.c_str(), folder.get(), to.c_str(), 0); });
  if (error == EXDEV) return copyTo(folder, to);
  if (error == 0) ::unlinkat(folder_.get(), name_.c_str(), 0);
  return error;
}

int LinuxReplacedFile::copyTo(const FileDescriptor& folder, const std::string& name) {
  struct stat status {};
  const int unknown = errnoOf(
      [&] { return ::fstatat(folder_.get(), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW); });
  if (unknown != 0 || !contents_) return unknown != 0 ? unknown : EXDEV;
  NewFile copy(folder.get(), name);
  if (const int error = copy.create(); error != 0) return error;
  if (const int error = copy.write(*contents_); error != 0) return error;
  if (const int error = copy.setOwnership(ownershipOf(status)); error != 0) return error;
  if (const int error = copy.putInEmptyPlace(); error != 0) return error;
  // What is written yet would be missing in the copy.
  stays_ = openForWriting_;
  return 0;
}

}  // namespace paddock
