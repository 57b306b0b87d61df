// Inheritable entries of extended ACLs: collected from a folder, kept as a composite of one list
// per level above an object, and applied to the object together with owner, group and mode.
//
// The routines with C linkage are exported by the module for others to use; nothing in it calls
// them. They keep no state but `gDebugBreak`, and are thread-safe.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>

#include "protocol/privilege_bits.h"

namespace paddock {

class PrivilegedObject;

// One inheritable entry of a folder.
struct InheritableACL {
  std::array<std::uint8_t, 16> guid;  // the entry's qualifier
  std::int32_t tag;                   // 1 allow, 2 deny
  std::uint32_t flags;                // of 0x1F0
  std::uint32_t permissions;          // of 0x3FFE
  InheritableACL* next;
};

// One level of a composite: the entries of one folder above an object, nearest folder first.
struct InheritedACLComposite {
  InheritableACL* entries;
  InheritedACLComposite* next;
};

struct PrivsToSet {
  std::uint32_t what;  // bits of kSetEverything
  std::uint32_t uid;
  std::uint32_t gid;
  std::uint16_t mode;  // its read and write bits are taken
  InheritedACLComposite* composite;
};

// Kinds of file, the type numbers of directory entries; every other number is "other".
inline constexpr int kDirectoryKind = 4;  // DT_DIR
inline constexpr int kRegularKind = 8;    // DT_REG

extern "C" {

// While it is not 0, a fault is raised on purpose before an ACL is written; for debuggers.
extern int gDebugBreak;

// A new entry or level, its links empty; released by FreeInheritedACLComposite of the level that it
// was put into.
InheritableACL* AllocInheritableACL();
InheritedACLComposite* AllocInheritedACLComposite();
// Releases the level and its entries, not the levels behind it. Null is allowed.
void FreeInheritedACLComposite(InheritedACLComposite* level);

// Sets `head` to the list of inheritable entries of the object at `path`, in its order; empty when
// it has no valid ACL. Those that it inherited itself are left out when `includeInherited` is 0. An
// entry whose qualifier, flag set or tag cannot be read ends the list. 0, or the errno of a
// permission set that cannot be read, with `head` empty.
int GetInheritableACL(const char* path, InheritableACL** head, std::int32_t includeInherited);

// Applies to the object at `path`, of the given kind, what `privs->what` says: its inherited
// entries go, then owner, group and mode are set, then the composite's entries are appended as
// inherited ones. Steps go on past failures, which are not reported; only one of the last step is
// logged.
void SetInheritedPrivs(const char* path, const PrivsToSet* privs, int kind);

}  // extern "C"

// Releases the entries of a list.
void FreeInheritableACL(InheritableACL* head);

// The same two on an open object. `name` identifies it in the log.
int GetInheritableACL(PrivilegedObject& object, InheritableACL*& head, bool includeInherited);
void SetInheritedPrivs(PrivilegedObject& object, const char* name, const PrivsToSet& privs,
                       int kind);

// The mode that an object of mode `current` gets from `privs`. Set-id and sticky bits are never
// carried over.
mode_t inherited_mode(mode_t current, const PrivsToSet& privs, int kind);

}  // namespace paddock
