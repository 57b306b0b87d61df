#include "platform/linux/privileges/linux_file_attributes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/system_call.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/files/path_walk.h"
#include "platform/linux/privileges/file_mode.h"

namespace paddock {

namespace {

std::optional<std::string> typeName(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "directory";
    case S_IFREG:
      return "regular";
    case S_IFLNK:
      return "symlink";
    case S_IFIFO:
      return "fifo";
    case S_IFSOCK:
      return "socket";
    case S_IFCHR:
      return "characterDevice";
    case S_IFBLK:
      return "blockDevice";
    default:
      return std::nullopt;
  }
}

// An id that has no name is no error.
int nameOf(int error, std::string&& found, std::optional<std::string>& name) {
  if (error == 0) name = std::move(found);
  return error == ENOENT ? 0 : error;
}

int readNames(Accounts& accounts, const struct stat& status, FileAttributes& attributes) {
  std::string name;
  int error = accounts.getpwuid(status.st_uid, name);
  error = nameOf(error, std::move(name), attributes.ownerName);
  if (error != 0) return error;
  std::string group;
  error = accounts.getgrgid(status.st_gid, group);
  return nameOf(error, std::move(group), attributes.groupName);
}

int readAll(Accounts& accounts, const std::string& path, FileAttributes& attributes) {
  FileDescriptor object;
  if (const int error = openObject(path, object); error != 0) return error;
  struct stat status {};
  int error = errnoOf([&] { return ::fstat(object.get(), &status); });
  if (error != 0) return error;
  mode_t mode = 0;
  error = readMode(linuxExtendedAttributes(), object.get(), status.st_mode, mode);
  if (error != 0) return error;
  attributes.permissions = mode;
  attributes.type = typeName(status.st_mode);
  return readNames(accounts, status, attributes);
}

// What chown(2) takes for an id that is to stay.
constexpr std::uint32_t kUnchanged = 0xFFFFFFFF;

struct Ids {
  std::uint32_t owner = kUnchanged;
  std::uint32_t group = kUnchanged;
};

// An unknown name is EINVAL, and so is the id that means "unchanged".
int checkedId(int error, std::uint32_t id) {
  if (error == ENOENT || (error == 0 && id == kUnchanged)) return EINVAL;
  return error;
}

int findIds(Accounts& accounts, const FileAttributeChanges& changes, Ids& ids) {
  if (changes.ownerName) {
    const int error = accounts.getpwnam(*changes.ownerName, ids.owner);
    if (const int failed = checkedId(error, ids.owner); failed != 0) return failed;
  }
  if (changes.groupName) {
    const int error = accounts.getgrnam(*changes.groupName, ids.group);
    if (const int failed = checkedId(error, ids.group); failed != 0) return failed;
  }
  return 0;
}

constexpr mode_t kSpecialBits = 07000;

// A mode without special bits leaves those of a folder: set-gid, which passes its group on, and
// sticky, which restricts deletion to owners.
int writeModeOf(int object, mode_t mode) {
  struct stat status {};
  if ((mode & kSpecialBits) == 0) {
    if (const int error = errnoOf([&] { return ::fstat(object, &status); }); error != 0)
      return error;
    if (S_ISDIR(status.st_mode)) mode |= status.st_mode & kSpecialBits;
  }
  return writeMode(linuxExtendedAttributes(), object, mode);
}

int changeObject(int object, const Ids& ids, const std::optional<std::uint32_t>& mode) {
  if (ids.owner != kUnchanged || ids.group != kUnchanged) {
    const int error =
        errnoOf([&] { return ::fchownat(object, "", ids.owner, ids.group, AT_EMPTY_PATH); });
    if (error != 0) return error;
  }
  return mode ? writeModeOf(object, *mode) : 0;
}

}  // namespace

int LinuxFileAttributes::read(const std::string& path, FileAttributes& attributes) {
  attributes = {};
  FileAttributes found;
  const int error = readAll(accounts_, path, found);
  if (error == 0) attributes = std::move(found);
  return error;
}

int LinuxFileAttributes::apply(const std::string& path, const FileAttributeChanges& changes) {
  Ids ids;
  if (const int error = findIds(accounts_, changes, ids); error != 0) return error;
  FileDescriptor object;
  if (const int error = openObject(path, object, PathUse::changing); error != 0) return error;
  if (!changes.ownerName && !changes.groupName && !changes.permissions) return 0;
  const int error = changeObject(object.get(), ids, changes.permissions);
  // Also after a failure: what was changed before it stays.
  const int refreshed = acls_.refresh(object.get());
  return error != 0 ? error : refreshed;
}

bool LinuxFileAttributes::exists(const std::string& path) {
  FileDescriptor object;
  std::optional<RefusedLink> refused;
  return holdObject(path, PathUse::reading, object, &refused) == 0 || refused;
}

std::optional<RefusedLink> LinuxFileAttributes::refusedLink(const std::string& path) {
  FileDescriptor object;
  std::optional<RefusedLink> refused;
  (void)holdObject(path, PathUse::changing, object, &refused);
  std::string name;
  if (refused && accounts_.getpwuid(refused->owner, name) == 0) refused->ownerName = name;
  return refused;
}

}  // namespace paddock
