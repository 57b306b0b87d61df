// The metadata stores of a system without an indexing service of its own: one SQLite database, in
// the format of docs/formats/metadata-stores.md.
//
// The stores are kept in memory between calls, and read again when the file at the path is another
// one or its header says that it was changed. The file is looked at once in ten milliseconds. So a
// look-up costs the same however many stores there are, and waits for no lock while the file is as
// it was; changes made here are seen at once, those of other programs ten milliseconds later at the
// latest. A missing file is no stores, and comes into being with the first change.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/directory.h"
#include "platform/linux/database/lock_patience.h"
#include "platform/linux/database/sqlite_file.h"
#include "platform/linux/directory/stored_metadata.h"
#include "platform/metadata_stores.h"

namespace paddock {

class Clock;
class Logger;

struct LinuxMetadataStoresOptions {
  std::string path;
  // Where it is said what is wrong with the database, when that is first met; null: nowhere.
  Logger* logger = nullptr;
  // Tells the ten milliseconds; null: the file is looked at in each call.
  Clock* clock = nullptr;
  // For how long other programs' locks are waited for, as LockPatience says.
  std::chrono::milliseconds patience = std::chrono::seconds(5);
};

class LinuxMetadataStores final : public MetadataStores {
 public:
  // Opens nothing yet. Logger and clock outlive this object.
  explicit LinuxMetadataStores(LinuxMetadataStoresOptions options);

  int copyStorePaths(std::shared_ptr<const StorePaths>& paths) override;
  int copyStoreAttributes(const std::string& path, Dictionary& attributes) override;
  int setStoreAttributes(const std::string& path, const Dictionary& attributes) override;
  int createStore(const std::string& path, const Dictionary& attributes) override;

 private:
  // What stat(2) says of a file.
  struct FileState {
    SqliteFileIdentity identity;
    off_t size = 0;
    timespec changed{};
    bool operator==(const FileState& other) const;
  };
  // A failure that stands until the file changes.
  struct Damage {
    FileState file;
    int error = 0;
  };

  int stateOfFile(FileState& state) const;
  int update();
  int lookAtFile();
  bool wasLookedAtJustNow() const;
  bool isUpToDate(const FileState& file);
  int readAgain(const FileState& file);
  void forget();
  SqliteConnection& connection();
  template <typename Work>
  int attempt(Work&& work);
  int failed(const DirectoryError& error);
  void noteDamage(int error);
  void report(const std::string& text);

  const std::string path_;
  Logger* const logger_;
  Clock* const clock_;
  std::mutex mutex_;
  LockPatience patience_;
  std::unique_ptr<SqliteConnection> connection_;
  SqliteFileIdentity opened_;  // the file of connection_

  // The stores as they were last read, null when they were not, and what they were read from.
  std::shared_ptr<const StoredMetadata> stores_;
  FileState file_;
  SqliteConnection::ChangeMark mark_{};

  // When stores_ were found up to date; absent after a change.
  std::optional<std::chrono::steady_clock::time_point> looked_;

  std::optional<Damage> damage_;
  std::string reported_;
};

}  // namespace paddock
