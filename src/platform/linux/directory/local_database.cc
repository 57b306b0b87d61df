#include "platform/linux/directory/local_database.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/database/local_schema.h"

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
  SqliteFileIdentity file;
  auto store = std::make_unique<LocalStore>(openFileInPlace(
      path_, [&] { return openDirectoryDatabase(path_, timeout); }, file));
  const std::string identity = store->identity();
  if (file != file_ || identity != identity_) ++generation_;
  file_ = file;
  identity_ = identity;
  store_ = std::move(store);
  answers_.clear();
  isOpenFile();  // updates seen_
}

void LocalDatabase::noteFailure(const DirectoryError& error) {
  const Status status = error.status().value_or(EIO);
  if (status == EBUSY) patience_.waitedInVain();
  if (!isSoundSqliteError(status)) store_.reset();
}

bool LocalDatabase::isOpenFile() {
  return ::stat(path_.c_str(), &seen_) == 0 &&
         file_ == SqliteFileIdentity{seen_.st_dev, seen_.st_ino};
}

DatabaseState LocalDatabase::stateOf(LocalStore& store) const {
  const auto nanoseconds = [](const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
  };
  return {{seen_.st_dev, seen_.st_ino},
          seen_.st_size,
          nanoseconds(seen_.st_mtim),
          nanoseconds(seen_.st_ctim),
          store.connection().changeMark()};
}

Array LocalDatabase::recordsWithValue(const std::vector<std::string>& types,
                                      const std::string& attribute, const std::string& value) {
  return use([&](LocalStore& store) {
    mutex_.assertHeld();
    const std::string key = KeptAnswers::keyOf(types, attribute, value);
    const DatabaseState before = stateOf(store);
    if (auto kept = answers_.find(before, key)) return std::move(*kept);
    Array found = store.recordsWithValue(types, attribute, value);
    if (isOpenFile()) answers_.keep(before, stateOf(store), key, found);
    return found;
  });
}

}  // namespace paddock
