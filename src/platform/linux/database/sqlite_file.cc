#include "platform/linux/database/sqlite_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/file_descriptor.h"
#include "platform/directory.h"

namespace paddock {

namespace {

int createFolderOf(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (folder.empty()) return 0;
  std::error_code error;
  if (folder.has_parent_path()) std::filesystem::create_directories(folder.parent_path(), error);
  if (error) return error.value();
  return ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST ? 0 : errno;
}

// The file appears at its path closed: closing a descriptor of a database in use would drop
// every lock that this process holds on it.
int createFile(const std::string& path) {
  std::string temporary = path + ".XXXXXX";
  FileDescriptor descriptor(::mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
  if (!descriptor) return errno;
  descriptor.reset();
  const int error = ::link(temporary.c_str(), path.c_str()) == 0 ? 0 : errno;
  ::unlink(temporary.c_str());
  return error == EEXIST ? 0 : error;
}

bool isMissing(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) != 0 && errno == ENOENT;
}

// How often a file that is replaced while it is being opened is tried.
constexpr int kOpenAttempts = 5;

}  // namespace

void createDatabaseFile(const std::string& kind, const std::string& path) {
  if (!isMissing(path)) return;
  int error = createFolderOf(path);
  if (error == 0) error = createFile(path);
  if (error != 0)
    throw DirectoryError(error, kind + " " + path + " cannot be created: " +
                                    std::error_code(error, std::system_category()).message());
}

std::unique_ptr<SqliteConnection> openFileInPlace(const std::string& path, const SqliteOpener& open,
                                                  SqliteFileIdentity& identity) {
  for (int attempt = 1;; ++attempt) {
    auto connection = open();
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !connection->fileHasMoved()) {
      identity = {status.st_dev, status.st_ino};
      return connection;
    }
    if (attempt == kOpenAttempts)
      throw DirectoryError(EBUSY, connection->name() + " is being replaced");
  }
}

}  // namespace paddock
