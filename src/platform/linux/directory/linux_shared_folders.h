// Shared folders, recorded in a small SQLite database of their own
// (docs/formats/shared-folders.md). Nothing is opened before the first call; a missing file is
// empty, and is created with the first folder.
#pragma once

#include <memory>
#include <string>

#include "base/mutex.h"
#include "platform/linux/database/sqlite.h"
#include "platform/linux/database/sqlite_file.h"
#include "platform/shared_folders.h"

namespace paddock {

class Logger;

class LinuxSharedFolders final : public SharedFolders {
 public:
  // `logger` receives errors of the database and must outlive this object; may be null.
  LinuxSharedFolders(std::string path, Logger* logger);

  int remember(const std::string& path, const std::string& name) override;
  int forget(const std::string& path) override;
  SharedFolder compare(const std::string& path, const std::string& name) override;

 private:
  SqliteConnection& connection() PADDOCK_REQUIRES(mutex_);
  template <typename Work>
  int use(Work work);
  bool hasFile() const;

  const std::string path_;
  Logger* const logger_;
  Mutex mutex_;
  std::unique_ptr<SqliteConnection> connection_ PADDOCK_GUARDED_BY(mutex_);
  SqliteFileIdentity opened_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
