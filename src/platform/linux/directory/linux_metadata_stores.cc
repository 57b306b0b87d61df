#include "platform/linux/directory/linux_metadata_stores.h"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>

#include "platform/linux/directory/stored_metadata.h"
#include "platform/logger.h"
#include "platform/machine_information.h"

namespace paddock {

namespace {

// A file that was changed less long ago may change again without another time stamp.
constexpr std::time_t kSecondsOfDoubt = 2;

// For how long the file is taken to be as it was. Looking each time would cost a listing of many
// share points a quarter more.
constexpr std::chrono::milliseconds kTrusted{10};

bool hasStore(SqliteConnection& connection, const std::string& path) {
  return connection.statement("SELECT 1 FROM stores WHERE path = ?1").bind(1, path).step();
}

void merge(SqliteConnection& connection, const std::string& path, const Dictionary& attributes) {
  SqliteStatement statement = connection.statement(
      "UPDATE stores SET attributes = json_patch(CASE WHEN json_valid(attributes) THEN attributes "
      "ELSE '{}' END, json_object(?2, ?3)) WHERE path = ?1");
  for (const auto& [name, value] : attributes)
    statement.bind(1, path).bind(2, name).bind(3, *value.string()).run();
}

}  // namespace

bool LinuxMetadataStores::FileState::operator==(const FileState& other) const {
  return identity == other.identity && size == other.size &&
         changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

LinuxMetadataStores::LinuxMetadataStores(LinuxMetadataStoresOptions options)
    : path_(std::move(options.path)),
      logger_(options.logger),
      clock_(options.clock),
      patience_(options.patience) {}

int LinuxMetadataStores::copyStorePaths(std::shared_ptr<const StorePaths>& paths) {
  paths = nullptr;
  const MutexLock lock(mutex_);
  if (const int error = update(); error != 0) return error;
  paths = std::shared_ptr<const StorePaths>(stores_, &stores_->paths());
  return 0;
}

int LinuxMetadataStores::copyStoreAttributes(const std::string& path, Dictionary& attributes) {
  attributes = {};
  const MutexLock lock(mutex_);
  if (const int error = update(); error != 0) return error;
  const Dictionary* found = stores_->attributes(path);
  if (found == nullptr) return ENOENT;
  attributes = *found;
  return 0;
}

template <typename Prepare>
int LinuxMetadataStores::change(const std::string& path, const Dictionary& attributes,
                                Prepare&& prepare) {
  if (const int error = metadata_store::argumentError(path, attributes); error != 0) return error;
  const MutexLock lock(mutex_);
  return attempt([&](SqliteConnection& database) {
    SqliteTransaction transaction(database, SqliteTransaction::Kind::write);
    if (const int error = prepare(database); error != 0) return error;
    merge(database, path, attributes);
    transaction.commit();
    return 0;
  });
}

int LinuxMetadataStores::setStoreAttributes(const std::string& path, const Dictionary& attributes) {
  return change(path, attributes, [&path](SqliteConnection& database) {
    return hasStore(database, path) ? 0 : ENOENT;
  });
}

int LinuxMetadataStores::createStore(const std::string& path, const Dictionary& attributes) {
  return change(path, attributes, [&path](SqliteConnection& database) {
    if (hasStore(database, path)) return EEXIST;
    database.statement("INSERT INTO stores(path, attributes) VALUES(?1, '{}')").bind(1, path).run();
    return 0;
  });
}

int LinuxMetadataStores::stateOfFile(FileState& state) const {
  struct stat status {};
  if (::stat(path_.c_str(), &status) != 0) return errno;
  state = {{status.st_dev, status.st_ino}, status.st_size, status.st_mtim};
  return 0;
}

// Makes stores_ those of the file.
int LinuxMetadataStores::update() {
  if (wasLookedAtJustNow()) return 0;
  const int error = lookAtFile();
  if (error == 0 && clock_ != nullptr) looked_ = clock_->monotonicNow();
  return error;
}

bool LinuxMetadataStores::wasLookedAtJustNow() const {
  return looked_ && stores_ != nullptr && clock_->monotonicNow() - *looked_ < kTrusted;
}

int LinuxMetadataStores::lookAtFile() {
  FileState file;
  const int error = stateOfFile(file);
  if (error == ENOENT) {
    forget();
    stores_ = std::make_shared<const StoredMetadata>();
    return 0;
  }
  if (error != 0) {
    forget();
    return error;
  }
  if (damage_ && damage_->file == file) return damage_->error;
  return isUpToDate(file) ? 0 : readAgain(file);
}

bool LinuxMetadataStores::isUpToDate(const FileState& file) {
  if (stores_ == nullptr || connection_ == nullptr || !(file_ == file)) return false;
  try {
    return connection_->changeMark() == mark_;
  } catch (const DirectoryError&) {
    return false;
  }
}

int LinuxMetadataStores::readAgain(const FileState& file) {
  stores_ = nullptr;
  // SQLite's own cache does not notice a file that was overwritten by something else.
  connection_.reset();
  return attempt([&](SqliteConnection& database) {
    mutex_.assertHeld();
    SqliteTransaction transaction(database, SqliteTransaction::Kind::read);
    auto stores = std::make_shared<const StoredMetadata>(database);
    mark_ = database.changeMark();
    transaction.commit();
    // The earlier state: a file that changed concurrently is read once more.
    file_ = file;
    stores_ = std::move(stores);
    return 0;
  });
}

// The file is gone.
void LinuxMetadataStores::forget() {
  connection_.reset();
  stores_ = nullptr;
  file_ = {};
  damage_.reset();
}

// The open database, waiting for locks as long as it may.
SqliteConnection& LinuxMetadataStores::connection() {
  FileState file;
  const bool same = connection_ != nullptr && !connection_->inTransaction() &&
                    stateOfFile(file) == 0 && file.identity == opened_;
  if (same) {
    connection_->setBusyTimeout(patience_.timeout());
  } else {
    connection_.reset();
    const SqliteOpener open = [this] {
      mutex_.assertHeld();
      return openSqliteFile(metadataStoreFormat(), path_, patience_.timeout());
    };
    connection_ = openFileInPlace(path_, open, opened_);
  }
  return *connection_;
}

template <typename Work>
int LinuxMetadataStores::attempt(Work&& work) {
  looked_.reset();
  try {
    const int error = work(connection());
    damage_.reset();
    reported_.clear();
    return error;
  } catch (const DirectoryError& error) {
    return failed(error);
  }
}

int LinuxMetadataStores::failed(const DirectoryError& error) {
  const int status = error.status().value_or(EIO);
  if (status == EBUSY) patience_.waitedInVain();
  if (!isSoundSqliteError(status)) noteDamage(status);
  report(error.what());
  return status;
}

// Keeps lookups from rereading a damaged file.
void LinuxMetadataStores::noteDamage(int error) {
  connection_.reset();
  stores_ = nullptr;
  FileState file;
  if (stateOfFile(file) != 0) return;
  const std::time_t age = std::time(nullptr) - file.changed.tv_sec;
  const bool mayChangeUnseen = age >= 0 && age < kSecondsOfDoubt;
  if (!mayChangeUnseen) damage_ = Damage{file, error};
}

void LinuxMetadataStores::report(const std::string& text) {
  if (logger_ == nullptr || text == reported_) return;
  reported_ = text;
  logger_->log(kLogError, "paddock_sharing: " + text);
}

}  // namespace paddock
