#include "platform/linux/files/linux_text_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string_view>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "platform/linux/files/file_place.h"
#include "platform/linux/files/new_file.h"
#include "platform/linux/files/path_walk.h"
#include "platform/linux/files/replaced_file.h"

namespace paddock {

namespace {

constexpr mode_t kModeOfNewFiles = 0644;
constexpr unsigned kOwn = static_cast<unsigned>(-1);  // see chown(2)

constexpr int kPlacements = 100;

bool isFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

// Puts the file in its place, where something may come or go at any moment. `gaveWay` is what was
// there.
int putInstead(NewFile& file, bool isThere, std::string& gaveWay) {
  int error = EAGAIN;
  for (int placement = 0; placement < kPlacements; ++placement) {
    error = isThere ? file.exchange(gaveWay) : file.putInEmptyPlace();
    if (error == 0 && isThere) return file.syncFolder();
    if (error != (isThere ? ENOENT : EEXIST)) return error;
    isThere = !isThere;
  }
  return error;
}

bool isNoFile(const FileIdentity& identity) { return identity.isSameState({}); }

// The same in the place of the expected file alone; ESTALE otherwise. Whether it was that one shows
// only when it has given way, so that another one is put back, which takes as long as two renames.
int putInsteadOf(const FileIdentity& expected, NewFile& file, const FileDescriptor& folder,
                 std::string& gaveWay) {
  if (isNoFile(expected)) {
    const int error = file.putInEmptyPlace();
    return error == EEXIST ? ESTALE : error;
  }
  struct stat status {};
  if (const int error = errnoOf([&] { return ::fstat(file.descriptor(), &status); }); error != 0)
    return error;
  if (const int error = file.exchange(gaveWay); error != 0) return error == ENOENT ? ESTALE : error;
  // What cannot be put back is the caller's to keep.
  if (isUntouched(folder, gaveWay, expected) || file.exchangeAgain(gaveWay) != 0)
    return file.syncFolder();
  const FileIdentity own = identityOf(status);
  file.close();
  if (isUntouched(folder, gaveWay, own)) {
    file.takeBack(std::exchange(gaveWay, std::string()));
  } else if (!isFile(folder, gaveWay, own)) {
    // The new file was replaced concurrently. The last one stays in place.
    file.exchangeAgain(gaveWay);
  }
  file.syncFolder();
  return ESTALE;
}

int writeNew(NewFile& file, const FilePlace& place, const std::string& contents) {
  if (place.present) {
    if (const int error = kindError(place.present->st_mode); error != 0) return error;
  }
  if (const int error = file.create(); error != 0) return error;
  if (const int error = file.write(contents); error != 0) return error;
  const int error = file.setOwnership(place.present ? ownershipOf(*place.present)
                                                    : FileOwnership{kOwn, kOwn, kModeOfNewFiles});
  // Here, and not between the check of the existing file and its replacement.
  return error != 0 ? error : file.sync();
}

}  // namespace

int LinuxTextFiles::read(const std::string& path, std::string& contents, FileIdentity& identity) {
  identity = {};
  struct stat status {};
  // A file written concurrently has another state afterwards, and is not mistaken for this one.
  const int error = readRegular(path, contents, status);
  if (error == 0) identity = identityOf(status);
  return error;
}

int LinuxTextFiles::identify(const std::string& path, FileIdentity& identity) {
  identity = {};
  if (const int error = pathError(path); error != 0) return error;
  struct stat status {};
  const int error = errnoOf([&] { return ::stat(path.c_str(), &status); });
  if (error == 0) identity = identityOf(status);
  return error;
}

int LinuxTextFiles::replace(const std::string& path, const std::string& contents) {
  return replaceAs(path, contents, [](const FileOwnership* present) {
    return present != nullptr ? *present : FileOwnership{kOwn, kOwn, kModeOfNewFiles};
  });
}

int LinuxTextFiles::replaceAs(const std::string& path, const std::string& contents,
                              const OwnershipRule& rule) {
  FilePlace place;
  if (const int error = findPlace(path, place); error != 0) return error;
  std::optional<FileOwnership> present;
  if (place.present) {
    if (const int error = kindError(place.present->st_mode); error != 0) return error;
    present = ownershipOf(*place.present);
  }
  NewFile file(place.folder.get(), place.name);
  if (const int error = file.create(); error != 0) return error;
  if (const int error = file.write(contents); error != 0) return error;
  const int error = file.setOwnership(rule(present ? &*present : nullptr));
  return error != 0 ? error : file.putInPlace();
}

int LinuxTextFiles::replaceKeeping(const std::string& path, const std::string& contents,
                                   const FileIdentity* expected, Replacement& replacement) {
  replacement = {};
  FilePlace place;
  if (const int error = findPlace(path, place); error != 0) return error;
  NewFile file(place.folder.get(), place.name);
  if (const int error = writeNew(file, place, contents); error != 0) return error;
  FileIdentity present;
  if (expected != nullptr) {
    const int error = identify(path, present);
    if (error != (isNoFile(*expected) ? ENOENT : 0) || !present.isSameState(*expected))
      return ESTALE;
  }
  std::string gaveWay;
  const int error = expected != nullptr ? putInsteadOf(*expected, file, place.folder, gaveWay)
                                        : putInstead(file, place.present.has_value(), gaveWay);
  struct stat status {};
  if (::fstat(file.descriptor(), &status) == 0) replacement.written = identityOf(status);
  if (!gaveWay.empty()) {
    replacement.gaveWay =
        std::make_unique<LinuxReplacedFile>(std::move(place.folder), std::move(gaveWay));
  }
  return error;
}

int LinuxTextFiles::copyOnce(const std::string& from, const std::string& to) {
  if (const int error = pathError(to); error != 0) return error;
  const auto [folderPath, name] = splitPath(to);
  FileDescriptor folder;
  if (const int error = openFolder(AT_FDCWD, folderPath, folder); error != 0) return error;
  struct stat present {};
  if (::fstatat(folder.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  std::string contents;
  struct stat status {};
  if (const int error = readRegular(from, contents, status); error != 0) return error;
  NewFile copy(folder.get(), name);
  if (const int error = copy.create(); error != 0) return error;
  if (const int error = copy.write(contents); error != 0) return error;
  const int error = copy.setOwnership(ownershipOf(status));
  return error != 0 ? error : copy.putInEmptyPlace();
}

int LinuxTextFiles::removeFile(const std::string& folderPath, const std::string& name) {
  if (!isFileName(name)) return EINVAL;
  if (const int error = pathError(folderPath); error != 0) return error;
  FileDescriptor folder;
  const int unopened = holdObject(folderPath, PathUse::changing, folder);
  if (unopened != 0) return unopened;
  // First, since a file system that is read-only refuses the removal of what is not there, too.
  struct stat present {};
  const int missing =
      errnoOf([&] { return ::fstatat(folder.get(), name.c_str(), &present, AT_SYMLINK_NOFOLLOW); });
  if (missing != 0) return missing;
  return errnoOf([&] { return ::unlinkat(folder.get(), name.c_str(), 0); });
}

int LinuxTextFiles::namesBeginningWith(const std::string& folderPath, const std::string& prefix,
                                       std::vector<std::string>& names) {
  names.clear();
  if (const int error = pathError(folderPath); error != 0) return error;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(folderPath.c_str()), ::closedir);
  if (!folder) return errno;
  errno = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name(static_cast<const char*>(entry->d_name));
    if (name.starts_with(prefix)) names.emplace_back(name);
    errno = 0;
  }
  const int error = errno;
  if (error != 0) names.clear();
  std::sort(names.begin(), names.end());
  return error;
}

bool LinuxTextFiles::exists(const std::string& path) {
  struct stat status {};
  return pathError(path) == 0 && errnoOf([&] { return ::stat(path.c_str(), &status); }) == 0;
}

}  // namespace paddock
