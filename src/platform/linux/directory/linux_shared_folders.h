// Shared folders, remembered in a small SQLite database of their own
// (docs/formats/shared-folders.md). Nothing is opened before the first call; a missing file
// remembers nothing, and comes into being with the first folder.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/database/sqlite.h"
#include "platform/linux/database/sqlite_file.h"
#include "platform/shared_folders.h"

namespace paddock {

class Logger;

class LinuxSharedFolders final : public SharedFolders {
 public:
  // `logger`, where it is said what is wrong with the database, outlives this object; null:
  // nowhere.
  LinuxSharedFolders(std::string path, Logger* logger);

  int remember(const std::string& path, const std::string& name) override;
  int forget(const std::string& path) override;
  SharedFolder compare(const std::string& path, const std::string& name) override;

 private:
  SqliteConnection& connection();
  template <typename Work>
  int use(Work work);
  bool hasFile() const;

  const std::string path_;
  Logger* const logger_;
  std::mutex mutex_;
  std::unique_ptr<SqliteConnection> connection_;
  SqliteFileIdentity opened_;
};

}  // namespace paddock
