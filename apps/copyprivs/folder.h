// Folders of the tree being processed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/file_access.h"
#include "platform/linux/privileges/object_status.h"
#include "platform/linux/privileges/walk_rounds.h"
#include "privileges/acl_manipulation.h"

namespace paddock::copyprivs {

// The inheritable entries that come to an object, one level for each folder above it.

// The level of the nearest folder, with those above it. Immutable, so that any thread may read it,
// and kept alive as long as an object may inherit entries from it.
class Levels {
 public:
  using Pointer = std::shared_ptr<const Levels>;

  // Takes ownership of the entries.
  Levels(InheritableACL* entries, Pointer above);
  Levels(const Levels&) = delete;
  Levels& operator=(const Levels&) = delete;
  ~Levels();

  // As SetInheritedPrivs takes it; it is only read there.
  InheritedACLComposite* composite() const { return &level_; }

  // The levels with an empty one in front of them. From the third on another one makes no
  // difference: all that counts is whether a level is the first or the second.
  static Pointer withEmptyBelow(const Pointer& levels);

 private:
  bool beginsWithTwoEmptyOnes() const;

  mutable InheritedACLComposite level_;
  mutable Pointer above_;
};

// What a walk does with a folder; see platform/linux/privileges/walk_rounds.h.
enum class Visit : std::uint8_t {
  whole,    // everything in it is set and counted
  again,    // everything in it is set; counted is what was not as it should be
  folders,  // its folders are looked at: the rest was set, and nothing came since
};

// What this round does with a folder that is met in one with which it does `above`. The rounds keep
// it as visited.
Visit visitOf(const ObjectStatus& folder, Visit above, WalkRounds& rounds);

// A folder that was encountered, with its ancestors: enough to find it again by name from any of
// them, and to identify it. Immutable, so that any thread may read it.
class Folder {
 public:
  using Pointer = std::shared_ptr<const Folder>;

  // `isSet`: its privileges were set after `status`, so that its ctime is another one.
  Folder(Pointer above, std::string name, const ObjectStatus& status, Levels::Pointer inside,
         Visit visit = Visit::whole, bool isSet = false);
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder();

  // Null for the starting folder.
  const Pointer& above() const { return above_; }
  const std::string& name() const { return name_; }
  // Of what it holds.
  const Levels::Pointer& levels() const { return levels_; }
  Visit visit() const { return visit_; }
  bool is(const ObjectStatus& status) const;
  // Whether its times are those that it was encountered with, so that no entry came or went.
  bool isAsEncountered(const ObjectStatus& status) const;
  // Records that an error of the folder is reported; false when one was already, since an object
  // counts once.
  bool noteError() const { return !failed_.exchange(true); }
  // The path of the entry of that name in it. The starting folder's name is its path.
  std::string pathOf(const std::string& name) const;
  std::string path() const;
  // The length of that path.
  std::size_t pathLength() const { return pathLength_; }

 private:
  mutable Pointer above_;
  const std::string name_;
  const std::size_t pathLength_;
  const std::uint64_t device_;
  const std::uint64_t inode_;
  const FileTime modified_;
  const FileTime changed_;
  const Levels::Pointer levels_;
  const Visit visit_;
  const bool isSet_;
  mutable std::atomic<bool> failed_ = false;
};

// Opening what a folder of the tree holds.

// Opens the entry of that name, a symlink itself, with O_PATH: no file is opened, no automount
// triggered. Returns 0 or an errno.
int hold(int folder, const char* name, FileDescriptor& object, ObjectStatus& status);

// The same within the mount and, where the kernel does not say which that is, the device of `tree`:
// EXDEV for what is mounted at the name, of which nothing is asked that its server would answer.
int holdInside(int folder, const char* name, const ObjectStatus& tree, FileDescriptor& object,
               ObjectStatus& status);

bool isOnMount(const ObjectStatus& status, const ObjectStatus& tree);

// Reopens an O_PATH descriptor of a folder for reading. Returns 0 or an errno.
int openFolder(int held, FileDescriptor& folder);

// Whether an open folder still has the ancestors that it was encountered with, up to the starting
// folder.
bool hasItsAncestors(int descriptor, const Folder& folder);

}  // namespace paddock::copyprivs
