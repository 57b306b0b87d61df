// What the kernel and the file system say of a path, whatever its list says: who may come to it,
// and what keeps everybody or one user from writing there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/file_access.h"
#include "effectiveprivs/object_reader.h"
#include "platform/accounts.h"
#include "platform/linux/acl/kernel_access.h"
#include "samba/samba_attributes.h"

namespace paddock::effectiveprivs {

// Unknown: cannot be determined.
enum class Access { no, yes, unknown };

struct DoorRight {
  Access access = Access::yes;
  std::string why;  // of anything but yes
};

// Reading data or listing, and writing it or adding to a folder.
struct DoorRights {
  DoorRight read;
  DoorRight write;
};

inline DoorRights noRights(const std::string& why) {
  return {{Access::no, why}, {Access::no, why}};
}
inline DoorRights unknownRights(const std::string& why) {
  return {{Access::unknown, why}, {Access::unknown, why}};
}
// `right` goes on only as far as the other one lets it; no is stronger than unknown.
void restrict(DoorRight& right, const DoorRight& other);
void restrict(DoorRights& rights, const DoorRights& other);

// A user as the kernel sees one.
struct KernelPerson {
  std::uint32_t uid = 0;
  std::vector<std::uint32_t> gids;
  // Whether the kernel lets it override modes and quotas.
  bool isRoot() const { return uid == 0; }
};

struct FolderAbove {
  std::string path;
  KernelObject kernel;
  dev_t device = 0;
};

class PathFacts {
 public:
  // Throws Failure. `names` are for the owners of folders that cannot be passed.
  PathFacts(const PinnedObject& object, Accounts& names);

  const std::string& path() const { return path_; }
  bool isFolder() const { return isFolder_; }
  dev_t device() const { return device_; }
  // From the nearest one up.
  const std::vector<FolderAbove>& above() const { return above_; }
  const KernelObject& kernel() const { return kernel_; }

  // What the kernel permits a user who reaches the path through the folders from `start` on, which
  // is an ancestor of the path or the path itself; empty for all of them.
  DoorRights kernelRights(const KernelPerson& person, const std::string& start = {}) const;
  // What the classes of the mode that the user is in give together, whatever the kernel's ACL says.
  DoorRights modeRights(const KernelPerson& person) const;
  // Whether it is a file with the attribute of that name, which SMB clients set.
  samba::DosReadOnly readOnly() const { return readOnly_; }
  // What keeps everybody from writing, root too: chattr(1), a read-only mount.
  DoorRight seal() const;
  // What keeps the user from writing but permissions: these, a full disk or quota.
  DoorRight room(const KernelPerson& person) const;
  // The highest folder that the user cannot pass: "stopped at /vol/priv, mode 700, owner root";
  // empty when there is none.
  std::string barrier(const KernelPerson& person, const std::string& start = {}) const;
  // The same as a folder; null when there is none.
  const FolderAbove* folderThatStops(const KernelPerson& person,
                                     const std::string& start = {}) const;
  // The groups and users that make a difference to the kernel.
  std::vector<std::uint32_t> gidsThatMatter() const;
  std::vector<std::uint32_t> uidsThatMatter() const;

 private:
  std::string quotaFault(const KernelPerson& person) const;

  std::string path_;
  bool isFolder_ = false;
  samba::DosReadOnly readOnly_ = samba::DosReadOnly::no;
  dev_t device_ = 0;
  KernelObject kernel_;
  std::vector<FolderAbove> above_;
  FileDescriptor file_;
  Accounts& names_;
};

}  // namespace paddock::effectiveprivs
