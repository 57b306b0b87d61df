#include "synchronize-shares/run_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <thread>

#include "base/file_access.h"
#include "base/system_call.h"

namespace paddock::synchronizer {

namespace {

constexpr const char* kName = "synchronize-shares.lock";
constexpr mode_t kFolderMode = 0755;
// Nobody else can open it, and so nobody else can hold the lock.
constexpr mode_t kFileMode = 0600;
constexpr std::chrono::milliseconds kPause{20};

}  // namespace

RunLock::RunLock(const std::string& folder, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  const std::string path = folder + "/" + kName;
  const FileDescriptor parent = openOwnFolder(folder, kFolderMode);
  int descriptor = -1;
  int error = errnoOf(
      [&parent] {
        return ::openat(parent.get(), kName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode);
      },
      &descriptor);
  if (error != 0) throw systemError(error, "cannot open", path);
  file_ = FileDescriptor(descriptor);
  while ((error = errnoOf([&] { return ::flock(descriptor, LOCK_EX | LOCK_NB); })) != 0) {
    if (error != EWOULDBLOCK) throw systemError(error, "cannot lock", path);
    if (std::chrono::steady_clock::now() >= deadline)
      throw systemError(ETIMEDOUT, "another run still holds", path);
    std::this_thread::sleep_for(kPause);
  }
}

}  // namespace paddock::synchronizer
