// Owner, group, mode and type of one file-system object, by name and in one call.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/path_use.h"

namespace paddock {

struct FileAttributes {
  std::optional<std::string> ownerName;  // absent: the owner has no account name
  std::optional<std::string> groupName;  // absent: the group has no name
  std::optional<std::uint32_t>
      permissions;  // st_mode & 07777, POSIX modes of owner, group and others
  // "directory", "regular", "symlink", "fifo", "socket", "characterDevice" or "blockDevice"
  std::optional<std::string> type;
};

// Absent members are left unchanged.
struct FileAttributeChanges {
  std::optional<std::string> ownerName;
  std::optional<std::string> groupName;
  std::optional<std::uint32_t> permissions;
};

class FileAttributeService {
 public:
  virtual ~FileAttributeService() = default;
  // Attributes of the object at `path`, links followed as path_use.h specifies for reading. Returns
  // 0, or an errno with `attributes` empty: EACCES for a link that does not count. The group class
  // of the mode is that of the owning group, also where st_mode has a POSIX ACL's mask in its
  // place.
  virtual int read(const std::string& path, FileAttributes& attributes) = 0;
  // Applies the whole set, links followed as path_use.h specifies for changing: owner and group
  // before the mode, so that the set-id bits end as in `permissions`. Where it has neither them nor
  // the sticky bit (it is 0777 at most) a folder keeps those that it has, as with chmod(1), and
  // anything else loses them. 0, or an errno: ENOENT, EPERM, EROFS, EACCES for a link that does not
  // count, EINVAL for a name that no account has (nothing is then changed); what was applied before
  // another failure stays.
  virtual int apply(const std::string& path, const FileAttributeChanges& changes) = 0;
  // Whether something exists at `path`, links followed. A link that does not count is something.
  virtual bool exists(const std::string& path) = 0;
  // The link that prevents changes at `path`; nullopt when there is none. For messages only: it may
  // be another one by the next call.
  virtual std::optional<RefusedLink> refusedLink(const std::string& path) = 0;
};

}  // namespace paddock
