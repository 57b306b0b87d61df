#include "volumes/volume_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

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

struct KeptFile {
  FileDescriptor descriptor;
  dev_t device = 0;
  ino_t inode = 0;
};

enum class KeptState : std::uint8_t { present, removed, foreign };

// Who closed the descriptor may have opened another file by its number, which is not ours to close.
KeptState stateOf(const KeptFile& kept) {
  struct stat status {};
  if (::fstat(kept.descriptor.get(), &status) != 0) return KeptState::foreign;
  if (status.st_dev != kept.device || status.st_ino != kept.inode) return KeptState::foreign;
  return status.st_nlink == 0 ? KeptState::removed : KeptState::present;
}

void forgetOthers(std::vector<KeptFile>& files, int newNumber) {
  std::erase_if(files, [newNumber](KeptFile& kept) {
    const bool reopened = kept.descriptor.get() == newNumber;
    const KeptState state = reopened ? KeptState::foreign : stateOf(kept);
    if (state == KeptState::foreign) (void)kept.descriptor.release();
    return state != KeptState::present;
  });
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

void keepOpen(FileDescriptor file) {
  static std::mutex mutex;
  // Never destroyed: at the process's end the files are closed anyway.
  static auto& files = *new std::vector<KeptFile>;
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return;
  const std::lock_guard lock(mutex);
  forgetOthers(files, file.get());
  for (const KeptFile& kept : files)
    if (kept.device == status.st_dev && kept.inode == status.st_ino) return;
  files.push_back({std::move(file), status.st_dev, status.st_ino});
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
