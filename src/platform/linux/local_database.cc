#include "platform/linux/local_database.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/linux/local_schema.h"

namespace paddock {

namespace {

// Errors that say nothing against the file or the connection.
constexpr std::array kSoundErrors = {ENOENT, EACCES, EINVAL, EEXIST, EBUSY, ENOSPC, ENOMEM};

// How often a file that is replaced while it is being opened is tried.
constexpr int kOpenAttempts = 5;

}  // namespace

LocalDatabase::LocalDatabase(std::string path, std::chrono::milliseconds patience)
    : path_(std::move(path)), patience_(patience) {}

std::chrono::milliseconds LocalDatabase::timeout() const {
  return Clock::now() < lockedUntil_ ? std::chrono::milliseconds::zero() : patience_;
}

LocalStore& LocalDatabase::opened() {
  // A transaction that could not even be rolled back.
  if (store_ && store_->connection().inTransaction()) store_.reset();
  if (store_ && !isOpenFile()) store_.reset();
  if (store_) {
    store_->connection().setBusyTimeout(timeout());
    return *store_;
  }
  try {
    open(timeout());
  } catch (const DirectoryError& error) {
    noteFailure(error);
    throw;
  }
  return *store_;
}

void LocalDatabase::open(std::chrono::milliseconds timeout) {
  for (int attempt = 1; !store_; ++attempt) {
    auto store = std::make_unique<LocalStore>(openDirectoryDatabase(path_, timeout));
    struct stat status {};
    const bool found = ::stat(path_.c_str(), &status) == 0;
    if (found && !store->connection().fileHasMoved()) {
      const std::string identity = store->identity();
      const bool same =
          status.st_dev == device_ && status.st_ino == inode_ && identity == identity_;
      if (!same) ++generation_;
      device_ = status.st_dev;
      inode_ = status.st_ino;
      identity_ = identity;
      store_ = std::move(store);
    } else if (attempt == kOpenAttempts) {
      throw DirectoryError(EBUSY, "directory database " + path_ + " is being replaced");
    }
  }
}

void LocalDatabase::noteFailure(const DirectoryError& error) {
  const Status status = error.status().value_or(EIO);
  if (status == EBUSY) lockedUntil_ = Clock::now() + patience_;
  if (std::find(kSoundErrors.begin(), kSoundErrors.end(), status) == kSoundErrors.end())
    store_.reset();
}

bool LocalDatabase::isOpenFile() const {
  struct stat status {};
  return ::stat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

}  // namespace paddock
