// Extended access-control lists, in the calls of POSIX.1e draft 17 as BSD's acl(3) extends them.
//
// An extended ACL is an ordered list of entries. An entry has a tag (allow or deny), a qualifier
// (the GUID of a user or group), a permission set and a flag set. Order is kept; nothing is sorted.
//
// Lists and qualifiers that a call returns are owned by the caller, to be released with acl_free.
// Entries and sets belong to their list and live as long as it does, or until acl_delete_entry. One
// list is for one thread at a time; different lists may be used concurrently.
//
// Calls that return int return 0, or -1 with errno, unless noted otherwise.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "base/guid.h"
#include "protocol/privilege_bits.h"

namespace paddock::acl {

// The only type of acl_get_file and acl_set_file; any other is EINVAL.
inline constexpr int kTypeExtended = 0x100;

// acl_get_entry's `which`.
inline constexpr int kFirstEntry = 0;
inline constexpr int kNextEntry = -1;

// Tags. An entry of a kind that this system does not make reads with another value, kept as it is.
inline constexpr int kUndefinedTag = 0;
inline constexpr int kExtendedAllow = 1;
inline constexpr int kExtendedDeny = 2;
inline constexpr int kForeignTag = 3;

class List;
class Entry;
// A set of permissions or flags; opaque to callers.
struct Permset;
struct Flagset;

class AclService {
 public:
  virtual ~AclService() = default;

  // The extended ACL of the object at `path`, links followed as path_use.h specifies for reading.
  // Null with errno when there is none (ENOENT; also when the path is missing) or it cannot be
  // read. A stored value that does not decode is a list that acl_valid refuses, never an absent
  // one.
  virtual List* acl_get_file(const std::string& path, int type) = 0;
  // Replaces the object's whole extended ACL in one step, links followed as path_use.h specifies
  // for changing; unchanged on failure. EACCES for a link that does not count, EINVAL for a list
  // that acl_valid refuses, ENOSPC or E2BIG for one that the file system cannot hold, EOPNOTSUPP
  // where it keeps none, EROFS, EPERM.
  virtual int acl_set_file(const std::string& path, int type, List* list) = 0;

  // An empty list; `count` is a hint. Null with errno: EINVAL (negative), ENOMEM.
  virtual List* acl_init(int count) = 0;
  // Appends an entry: tag undefined, no qualifier, both sets empty.
  virtual int acl_create_entry(List* list, Entry*& entry) = 0;
  // The first entry, or the one after the last returned. -1 with EINVAL after the last one, `entry`
  // then null.
  virtual int acl_get_entry(List* list, int which, Entry*& entry) = 0;
  // After deleting the entry last returned by acl_get_entry, the next call returns its successor.
  virtual int acl_delete_entry(List* list, Entry* entry) = 0;

  virtual int acl_get_tag_type(Entry* entry, int& tag) = 0;
  // EINVAL for anything but allow and deny.
  virtual int acl_set_tag_type(Entry* entry, int tag) = 0;
  // A copy of the qualifier, owned by the caller; null with errno (EINVAL) when the entry has none.
  virtual Guid* acl_get_qualifier(Entry* entry) = 0;
  virtual int acl_set_qualifier(Entry* entry, const Guid& qualifier) = 0;

  // The entry's own set: additions and removals apply to the entry directly; acl_set_permset also
  // accepts another entry's set and copies it.
  virtual int acl_get_permset(Entry* entry, Permset*& permset) = 0;
  virtual int acl_set_permset(Entry* entry, Permset* permset) = 0;
  virtual int acl_clear_perms(Permset* permset) = 0;
  // EINVAL for a value that is not one permission.
  virtual int acl_add_perm(Permset* permset, Permission permission) = 0;
  // 1 when the set holds it, 0 when not, -1 with EINVAL for a value that is not one permission.
  virtual int acl_get_perm_np(Permset* permset, Permission permission) = 0;

  virtual int acl_get_flagset_np(Entry* entry, Flagset*& flagset) = 0;
  virtual int acl_set_flagset_np(Entry* entry, Flagset* flagset) = 0;
  virtual int acl_clear_flags_np(Flagset* flagset) = 0;
  virtual int acl_add_flag_np(Flagset* flagset, Flag flag) = 0;
  virtual int acl_get_flag_np(Flagset* flagset, Flag flag) = 0;

  // 0, or -1 with EINVAL: the stored value did not decode, more than 1,000 entries, or an entry
  // without a qualifier or with an undefined tag.
  virtual int acl_valid(List* list) = 0;

  // Releases what a call returned; may be null. It is released even on failure.
  virtual int acl_free(List* list) = 0;
  virtual int acl_free(Guid* qualifier) = 0;
};

}  // namespace paddock::acl
