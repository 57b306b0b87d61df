#include "synchronize-shares/kept_lists.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <span>
#include <sstream>
#include <system_error>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "platform/linux/accounts/nss.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/files/folder_entries.h"
#include "samba/samba_attributes.h"

namespace paddock::synchronizer {

namespace {

constexpr std::size_t kBufferBytes = 32768;
// Each level holds a descriptor.
constexpr std::size_t kMaximumDepth = 256;
constexpr std::size_t kNamedFailures = 5;

std::optional<std::string> attributeOf(int object, const std::string& name, int& error) {
  std::string value;
  error = linuxExtendedAttributes().get(object, name, value);
  if (error == 0) return value;
  if (error == ENODATA || error == EOPNOTSUPP) error = 0;
  return std::nullopt;
}

std::optional<std::string> kernelHash(int object) {
  struct stat status {};
  int error = errnoOf([&] { return ::fstat(object, &status); });
  if (error != 0) return std::nullopt;
  samba::KernelAcls acls{status.st_uid, status.st_gid, status.st_mode, {}, {}};
  acls.access = attributeOf(object, posix_acl::kAccessAttribute, error);
  if (error == 0 && S_ISDIR(status.st_mode))
    acls.defaultAccess = attributeOf(object, posix_acl::kDefaultAttribute, error);
  return error == 0 ? samba::kernelAclHashOf(acls) : std::nullopt;
}

bool isFolder(int object) {
  struct stat status {};
  return errnoOf([&] { return ::fstat(object, &status); }) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

Served servedBefore(const std::string& text, const std::string& name, const std::string& path) {
  std::istringstream stream(text);
  bool isIts = false;
  bool isThere = false;
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with('[')) isIts = line == "[" + name + "]";
    if (!isIts) continue;
    if (line == "    path = " + path) isThere = true;
    if (isThere && line == "    acl_xattr:ignore system acls = no") return Served::byLists;
  }
  return isThere ? Served::byModes : Served::unpublished;
}

// A folder on the way, and the folders in it that are still to be entered.
struct ListKeeper::Level {
  FileDescriptor folder;
  std::string path;
  std::vector<std::string> inside;
};

ListKeeper::Limits ListKeeper::noLimits() {
  return {static_cast<std::size_t>(-1), std::chrono::hours(24 * 365)};
}

ListKeeper::ListKeeper(std::string attribute, const Limits& limits)
    : attribute_(std::move(attribute)),
      end_(std::chrono::steady_clock::now() + limits.time),
      left_(limits.objects) {}

std::string ListKeeper::keepBelow(const std::string& path, Served before) {
  withOverridden_ = before == Served::byModes;
  failed_ = 0;
  failures_.clear();
  FileDescriptor folder;
  std::optional<RefusedLink> refused;
  const int error = openObject(path, folder, PathUse::changing, &refused);
  if (refused) return path + " is left alone: " + textWithOwner(*refused);
  if (error != 0) {
    note(path, error);
    return faults();
  }
  keep(folder.get(), path);
  walk(std::move(folder), path);
  return faults();
}

void ListKeeper::walk(FileDescriptor folder, const std::string& path) {
  std::vector<Level> levels;
  levels.push_back({std::move(folder), path, {}});
  readLevel(levels.back());
  while (!levels.empty() && !isOver_) {
    Level& level = levels.back();
    if (level.inside.empty()) {
      levels.pop_back();
      continue;
    }
    const std::string name = std::move(level.inside.back());
    level.inside.pop_back();
    const std::string inside = level.path + "/" + name;
    int number = -1;
    const int error = errnoOf(
        [&] {
          return ::openat(level.folder.get(), name.c_str(),
                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        },
        &number);
    if (error == ENOENT || error == ENOTDIR || error == ELOOP) continue;  // gone, or replaced
    if (error != 0 || levels.size() >= kMaximumDepth) {
      const FileDescriptor unused(number);
      note(inside, error != 0 ? error : ENAMETOOLONG);
      continue;
    }
    levels.push_back({FileDescriptor(number), inside, {}});
    readLevel(levels.back());
  }
}

// Keeps the lists of what is in the folder.
void ListKeeper::readLevel(Level& level) {
  std::array<char, kBufferBytes> buffer{};
  std::span<const char> bytes;
  std::int64_t position = 0;
  int error = 0;
  while ((error = readEntries(level.folder.get(), buffer, bytes, position)) == 0 &&
         !bytes.empty()) {
    FolderEntries entries(bytes);
    while (const dirent64* entry = entries.next()) {
      if (entry->d_type == DT_LNK) continue;
      if (isUp()) return;
      const std::string name = entry->d_name;
      const FileDescriptor object(
          ::openat(level.folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
      if (!object) {
        if (errno != ENOENT) note(level.path + "/" + name, errno);
        continue;
      }
      keep(object.get(), level.path + "/" + name);
      if (entry->d_type == DT_DIR || (entry->d_type == DT_UNKNOWN && isFolder(object.get())))
        level.inside.push_back(name);
    }
  }
  if (error != 0) note(level.path, error);
}

bool ListKeeper::isUp() {
  if (left_ == 0 || std::chrono::steady_clock::now() >= end_)
    isOver_ = true;
  else
    --left_;
  return isOver_;
}

void ListKeeper::keep(int object, const std::string& path) {
  int error = 0;
  const auto value = attributeOf(object, attribute_, error);
  if (error != 0) note(path, error);
  if (!value) return;
  const auto force = samba::listForce(*value, [object] { return kernelHash(object); });
  const bool isToStay = !force || force == samba::ListForce::inForce ||
                        (force == samba::ListForce::overridden && !withOverridden_);
  if (isToStay) return;
  if (const int failure = rewrite(object, *value); failure != 0) note(path, failure);
}

// 0 or an errno.
int ListKeeper::rewrite(int object, const std::string& value) const {
  const auto descriptor = nt_acl::decode(value);
  const auto written = descriptor ? nt_acl::encode(*descriptor) : std::nullopt;
  if (!written) return EBADMSG;
  int error = 0;
  // A client may have set another one.
  if (attributeOf(object, attribute_, error) != value) return error != 0 ? error : EAGAIN;
  return linuxExtendedAttributes().set(object, attribute_, *written);
}

void ListKeeper::note(const std::string& path, int error) {
  if (++failed_ <= kNamedFailures)
    failures_.push_back(path + ": " + std::generic_category().message(error));
}

std::string ListKeeper::faults() const {
  std::string text;
  if (failed_ != 0)
    text = "lists that SMB clients have set would fall out of force and cannot be written anew: ";
  for (std::size_t at = 0; at < failures_.size(); ++at)
    text += (at > 0 ? ", " : "") + failures_[at];
  if (failed_ > failures_.size())
    text += " and " + std::to_string(failed_ - failures_.size()) + " more";
  if (isOver_)
    text += std::string(text.empty() ? "" : "; ") +
            "it has too many files to look at now for lists that SMB clients have set and that "
            "would fall out of force (synchronize-shares --no-limit looks at all)";
  return text;
}

}  // namespace paddock::synchronizer
