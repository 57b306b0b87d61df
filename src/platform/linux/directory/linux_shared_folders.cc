#include "platform/linux/directory/linux_shared_folders.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include "base/system_call.h"
#include "platform/directory.h"
#include "platform/linux/database/sqlite_file.h"
#include "platform/linux/files/path_walk.h"
#include "platform/logger.h"

namespace paddock {

namespace {

constexpr std::chrono::milliseconds kPatience{2000};
constexpr std::int64_t kApplicationId = 0x50645366;  // "PdSf"

constexpr const char* kVersion1 = R"sql(
-- inode, type: st_ino of the folder, and f_type of its file system as statfs(2) has it.
CREATE TABLE folders(
  path TEXT PRIMARY KEY NOT NULL,
  name TEXT NOT NULL,
  inode INTEGER NOT NULL,
  type INTEGER NOT NULL
) WITHOUT ROWID;
)sql";

const SqliteFormat& format() {
  static const SqliteFormat format{"database of shared folders", kApplicationId, {kVersion1}};
  return format;
}

// In magic.h these two are not.
constexpr std::int64_t kZfs = 0x2FC12FC1;
constexpr std::int64_t kJfs = 0x3153464A;
// Whose inodes keep their numbers as long as they are there.
constexpr std::array<std::int64_t, 10> kLasting = {EXT4_SUPER_MAGIC,
                                                   XFS_SUPER_MAGIC,
                                                   BTRFS_SUPER_MAGIC,
                                                   F2FS_SUPER_MAGIC,
                                                   TMPFS_MAGIC,
                                                   NFS_SUPER_MAGIC,
                                                   OVERLAYFS_SUPER_MAGIC,
                                                   REISERFS_SUPER_MAGIC,
                                                   kZfs,
                                                   kJfs};

struct Folder {
  std::int64_t inode = 0;
  std::int64_t type = 0;
  friend bool operator==(const Folder&, const Folder&) = default;
};

// Of what is held.
std::optional<Folder> folderOf(int object) {
  struct stat status {};
  struct statfs volume {};
  if (errnoOf([&] { return ::fstat(object, &status); }) != 0 || !S_ISDIR(status.st_mode) ||
      errnoOf([&] { return ::fstatfs(object, &volume); }) != 0) {
    return std::nullopt;
  }
  const std::int64_t type = volume.f_type;
  if (std::find(kLasting.begin(), kLasting.end(), type) == kLasting.end()) return std::nullopt;
  // A number above the signed ones is kept by its bits.
  return Folder{static_cast<std::int64_t>(status.st_ino), type};
}

}  // namespace

LinuxSharedFolders::LinuxSharedFolders(std::string path, Logger* logger)
    : path_(std::move(path)), logger_(logger) {}

int LinuxSharedFolders::remember(const std::string& path, const std::string& name) {
  FileDescriptor object;
  std::optional<Folder> folder;
  if (holdObject(path, PathUse::reading, object) == 0) folder = folderOf(object.get());
  if (!folder) return forget(path);
  return use([&](SqliteConnection& database) {
    SqliteTransaction transaction(database, SqliteTransaction::Kind::write);
    database
        .statement("INSERT OR REPLACE INTO folders(path, name, inode, type) VALUES(?1, ?2, ?3, ?4)")
        .bind(1, path)
        .bind(2, name)
        .bind(3, folder->inode)
        .bind(4, folder->type)
        .run();
    transaction.commit();
  });
}

int LinuxSharedFolders::forget(const std::string& path) {
  if (!hasFile()) return 0;
  return use([&](SqliteConnection& database) {
    SqliteTransaction transaction(database, SqliteTransaction::Kind::write);
    database.statement("DELETE FROM folders WHERE path = ?1").bind(1, path).run();
    transaction.commit();
  });
}

SharedFolder LinuxSharedFolders::compare(const std::string& path, const std::string& name) {
  if (!hasFile()) return SharedFolder::unknown;
  std::optional<Folder> known;
  const int error = use([&](SqliteConnection& database) {
    SqliteTransaction transaction(database, SqliteTransaction::Kind::read);
    SqliteStatement query =
        database.statement("SELECT inode, type FROM folders WHERE path = ?1 AND name = ?2");
    if (query.bind(1, path).bind(2, name).step())
      known = Folder{query.integer(0), query.integer(1)};
  });
  if (error != 0) return SharedFolder::unreachable;
  if (!known) return SharedFolder::unknown;
  FileDescriptor object;
  struct stat status {};
  if (holdObject(path, PathUse::reading, object) != 0 ||
      errnoOf([&] { return ::fstat(object.get(), &status); }) != 0) {
    return SharedFolder::unreachable;
  }
  // Also one whose file system is not among those whose numbers last: it is another one then.
  return folderOf(object.get()) == known ? SharedFolder::same : SharedFolder::other;
}

bool LinuxSharedFolders::hasFile() const {
  struct stat status {};
  return ::stat(path_.c_str(), &status) == 0 || errno != ENOENT;
}

SqliteConnection& LinuxSharedFolders::connection() {
  if (connection_ != nullptr && (connection_->inTransaction() || connection_->fileHasMoved()))
    connection_.reset();
  if (connection_ == nullptr) {
    connection_ = openFileInPlace(
        path_, [this] { return openSqliteFile(format(), path_, kPatience); }, opened_);
  }
  return *connection_;
}

// 0, or the errno of what is thrown, which is logged.
template <typename Work>
int LinuxSharedFolders::use(Work work) {
  const MutexLock lock(mutex_);
  try {
    work(connection());
    return 0;
  } catch (const DirectoryError& error) {
    connection_.reset();
    if (logger_ != nullptr)
      logger_->log(kLogWarning, std::string("paddock_sharing: ") + error.what());
    return error.status().value_or(EIO);
  }
}

}  // namespace paddock
