#include "platform/linux/files/path_walk.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <string_view>
#include <utility>

#include "base/system_call.h"

namespace paddock {

namespace {

constexpr int kMostLinks = 40;
constexpr int kHeld = O_PATH | O_NOFOLLOW | O_CLOEXEC;

int openAt(int folder, const char* name, int flags, FileDescriptor& object) {
  int number = -1;
  const int error = errnoOf([&] { return ::openat(folder, name, flags); }, &number);
  if (error == 0) object = FileDescriptor(number);
  return error;
}

// Of the link itself that is held.
int readTarget(int link, std::string& target) {
  std::array<char, PATH_MAX> buffer{};
  std::size_t size = 0;
  const int error =
      errnoOf([&] { return ::readlinkat(link, "", buffer.data(), buffer.size()); }, &size);
  if (error == 0) target.assign(buffer.data(), size);
  return error;
}

// The kernel's own way through such a link is not the path that it says. The others of /proc
// (self, mounts, net) say where they lead from their own folder.
bool leadsToObject(int link, const std::string& target) {
  struct statfs volume {};
  const int unknown = errnoOf([&] { return ::fstatfs(link, &volume); });
  return unknown != 0 || (volume.f_type == PROC_SUPER_MAGIC &&
                          (target.starts_with('/') || target.find(':') != std::string::npos));
}

std::string joined(const std::string& folder, std::string_view name) {
  if (folder.empty()) return std::string(name);
  return folder + (folder.ends_with('/') ? "" : "/") + std::string(name);
}

class Walk {
 public:
  Walk(PathUse use, std::optional<RefusedLink>* refused) : use_(use), refused_(refused) {}

  // What `path` leads to from the folder; `place` is what messages call the folder.
  int follow(int folder, std::string_view path, std::string place, FileDescriptor& object) {
    if (path.empty()) return ENOENT;
    const bool isAbsolute = path.front() == '/';
    const bool wantsFolder = path.back() == '/';
    if (isAbsolute) place = "/";
    FileDescriptor current;
    int error = openAt(folder, isAbsolute ? "/" : ".", kHeld | O_DIRECTORY, current);
    while (error == 0 && !path.empty()) {
      const std::size_t end = std::min(path.find('/'), path.size());
      if (end > 0) error = enter(current, std::string(path.substr(0, end)), place);
      path.remove_prefix(std::min(end + 1, path.size()));
    }
    if (error == 0 && wantsFolder) error = requireFolder(current.get());
    if (error == 0) object = std::move(current);
    return error;
  }

 private:
  // Makes `current`, a folder, what has the name in it.
  int enter(FileDescriptor& current, const std::string& name, std::string& place) {
    std::string inside = joined(place, name);
    FileDescriptor next;
    // As a folder first, since that alone mounts what is mounted on demand.
    int error = openAt(current.get(), name.c_str(), kHeld | O_DIRECTORY, next);
    if (error == ENOTDIR || error == ELOOP) {
      error = enterOther(current.get(), name, inside, next);
    }
    if (error != 0) return error;
    place = std::move(inside);
    current = std::move(next);
    return 0;
  }

  int enterOther(int folder, const std::string& name, const std::string& place,
                 FileDescriptor& next) {
    FileDescriptor found;
    if (const int error = openAt(folder, name.c_str(), kHeld, found); error != 0) return error;
    struct stat status {};
    const int error = errnoOf([&] { return ::fstat(found.get(), &status); });
    if (error != 0) return error;
    if (S_ISLNK(status.st_mode)) return followLink(folder, found.get(), status.st_uid, place, next);
    next = std::move(found);
    return 0;
  }

  int followLink(int folder, int link, uid_t owner, const std::string& place,
                 FileDescriptor& next) {
    if (++followed_ > kMostLinks) return ELOOP;
    RefusedLink refused{place, {}, owner, {}, false};
    if (const int error = readTarget(link, refused.target); error != 0) return error;
    refused.leadsToObject = leadsToObject(link, refused.target);
    if (refused.leadsToObject) return refuse(std::move(refused));
    const std::string above = place.substr(0, place.rfind('/') + 1);
    const int error = follow(folder, refused.target, above, next);
    if (error != 0 || use_ == PathUse::reading || owner == 0 || owner == ::geteuid()) return error;
    struct stat target {};
    const int unknown = errnoOf([&] { return ::fstat(next.get(), &target); });
    if (unknown != 0) return unknown;
    return target.st_uid == owner ? 0 : refuse(std::move(refused));
  }

  static int requireFolder(int object) {
    struct stat status {};
    const int error = errnoOf([&] { return ::fstat(object, &status); });
    if (error != 0) return error;
    return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
  }

  int refuse(RefusedLink&& link) {
    if (refused_ != nullptr) *refused_ = std::move(link);
    return EACCES;
  }

  const PathUse use_;
  std::optional<RefusedLink>* const refused_;
  int followed_ = 0;
};

}  // namespace

int holdObject(const std::string& path, PathUse use, FileDescriptor& object,
               std::optional<RefusedLink>* refused) {
  object.reset();
  if (refused != nullptr) refused->reset();
  if (path.find('\0') != std::string::npos) return ENOENT;
  if (path.size() >= PATH_MAX) return ENAMETOOLONG;
  return Walk(use, refused).follow(AT_FDCWD, path, "", object);
}

}  // namespace paddock
