// The metadata stores of a system without an indexing service of its own: one SQLite database, in
// the format of docs/formats/metadata-stores.md.
//
// The stores are cached in memory between calls, and reread when the file at the path was replaced
// or its header shows a change. The file is checked at most every ten milliseconds. So a lookup
// takes the same time for any number of stores, and waits for no lock while the file is unchanged;
// changes made here are visible at once, those of other programs within ten milliseconds. A missing
// file means no stores, and is created with the first change.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "platform/directory.h"
#include "platform/linux/database/sqlite_file.h"
#include "platform/linux/directory/stored_metadata.h"
#include "platform/metadata_stores.h"

namespace paddock {

class Clock;
class Logger;

struct LinuxMetadataStoresOptions {
  std::string path;
  // Receives errors of the database when they first occur; may be null.
  Logger* logger = nullptr;
  // Clock of the ten milliseconds; null: the file is checked in each call.
  Clock* clock = nullptr;
  // Maximum wait for other programs' locks, see LockPatience.
  std::chrono::milliseconds patience = std::chrono::seconds(5);
};

class LinuxMetadataStores final : public MetadataStores {
 public:
  // Opens nothing yet. Logger and clock must outlive this object.
  explicit LinuxMetadataStores(LinuxMetadataStoresOptions options);

  int copyStorePaths(std::shared_ptr<const StorePaths>& paths) override;
  int copyStoreAttributes(const std::string& path, Dictionary& attributes) override;
  int setStoreAttributes(const std::string& path, const Dictionary& attributes) override;
  int createStore(const std::string& path, const Dictionary& attributes) override;

 private:
  // stat(2) data of a file.
  struct FileState {
    SqliteFileIdentity identity;
    off_t size = 0;
    timespec changed{};
    bool operator==(const FileState& other) const;
  };
  // A failure that persists until the file changes.
  struct Damage {
    FileState file;
    int error = 0;
  };

  int stateOfFile(FileState& state) const;
  int update() PADDOCK_REQUIRES(mutex_);
  int lookAtFile() PADDOCK_REQUIRES(mutex_);
  bool wasLookedAtJustNow() const PADDOCK_REQUIRES(mutex_);
  bool isUpToDate(const FileState& file) PADDOCK_REQUIRES(mutex_);
  int readAgain(const FileState& file) PADDOCK_REQUIRES(mutex_);
  void forget() PADDOCK_REQUIRES(mutex_);
  SqliteConnection& connection() PADDOCK_REQUIRES(mutex_);
  template <typename Work>
  int attempt(Work&& work) PADDOCK_REQUIRES(mutex_);
  // Gives the store these attributes, in one transaction with what `prepare` does to the database
  // before, unless that gives an errno.
  template <typename Prepare>
  int change(const std::string& path, const Dictionary& attributes, Prepare&& prepare);
  int failed(const DirectoryError& error) PADDOCK_REQUIRES(mutex_);
  void noteDamage(int error) PADDOCK_REQUIRES(mutex_);
  void report(const std::string& text) PADDOCK_REQUIRES(mutex_);

  const std::string path_;
  Logger* const logger_;
  Clock* const clock_;
  Mutex mutex_;
  LockPatience patience_ PADDOCK_GUARDED_BY(mutex_);
  std::unique_ptr<SqliteConnection> connection_ PADDOCK_GUARDED_BY(mutex_);
  SqliteFileIdentity opened_ PADDOCK_GUARDED_BY(mutex_);  // the file of connection_

  // The stores as they were last read, null when they were not, and what they were read from.
  std::shared_ptr<const StoredMetadata> stores_ PADDOCK_GUARDED_BY(mutex_);
  FileState file_ PADDOCK_GUARDED_BY(mutex_);
  SqliteConnection::ChangeMark mark_ PADDOCK_GUARDED_BY(mutex_){};

  // When stores_ were found up to date; absent after a change.
  std::optional<std::chrono::steady_clock::time_point> looked_ PADDOCK_GUARDED_BY(mutex_);

  std::optional<Damage> damage_ PADDOCK_GUARDED_BY(mutex_);
  std::string reported_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
