#include "platform/linux/local_database.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/local_schema.h"

namespace paddock {

LocalDatabase::LocalDatabase(std::string path, std::chrono::milliseconds patience)
    : path_(std::move(path)), patience_(patience) {}

LocalStore& LocalDatabase::opened() {
  // A transaction that could not even be rolled back.
  if (store_ && store_->connection().inTransaction()) store_.reset();
  if (store_ && !isOpenFile()) store_.reset();
  if (store_) {
    store_->connection().setBusyTimeout(patience_.timeout());
    return *store_;
  }
  try {
    open(patience_.timeout());
  } catch (const DirectoryError& error) {
    noteFailure(error);
    throw;
  }
  return *store_;
}

void LocalDatabase::open(std::chrono::milliseconds timeout) {
  FileIdentity file;
  auto store = std::make_unique<LocalStore>(openFileInPlace(
      path_, [&] { return openDirectoryDatabase(path_, timeout); }, file));
  const std::string identity = store->identity();
  if (file != file_ || identity != identity_) ++generation_;
  file_ = file;
  identity_ = identity;
  store_ = std::move(store);
}

void LocalDatabase::noteFailure(const DirectoryError& error) {
  const Status status = error.status().value_or(EIO);
  if (status == EBUSY) patience_.waitedInVain();
  if (!isSoundSqliteError(status)) store_.reset();
}

bool LocalDatabase::isOpenFile() const {
  struct stat status {};
  return ::stat(path_.c_str(), &status) == 0 && file_ == FileIdentity{status.st_dev, status.st_ino};
}

}  // namespace paddock
