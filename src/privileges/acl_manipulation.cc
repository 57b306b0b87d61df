#include "privileges/acl_manipulation.h"

#include <cassert>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "base/guid.h"
#include "base/status.h"
#include "platform/acl.h"
#include "platform/logger.h"
#include "platform/privileged_object.h"
#include "platform/services.h"

namespace paddock {

namespace {

struct ModeClass {
  std::uint32_t what;
  mode_t all;
  mode_t readWrite;
  mode_t execute;
};

constexpr std::array<ModeClass, 3> kClasses = {{{kSetOwnerPermissions, 0700, 0600, 0100},
                                                {kSetGroupPermissions, 0070, 0060, 0010},
                                                {kSetOtherPermissions, 0007, 0006, 0001}}};

}  // namespace

mode_t inherited_mode(mode_t current, const PrivsToSet& privs, int kind) {
  const bool isFolder = kind == kDirectoryKind;
  // Deliberate: set-user-id, set-group-id and sticky bits are not among what is kept.
  mode_t mode = isFolder ? 0 : current & 0111U;
  for (const ModeClass& one : kClasses) {
    const bool isSet = (privs.what & one.what) != 0;
    mode |= isSet ? privs.mode & one.readWrite : current & one.all;
    // Who may read or write a folder may search it, too.
    if (isFolder && isSet && (mode & one.readWrite) != 0) mode |= one.execute;
  }
  return mode;
}

extern "C" {
int gDebugBreak = 0;
}

namespace {

acl::AclService& service() { return *services().acl; }

// The flags of an entry; absent when its flag set cannot be read.
std::optional<acl::Flag> flagsOf(acl::Entry* entry) {
  acl::Flagset* flagset = nullptr;
  if (service().acl_get_flagset_np(entry, flagset) != 0) return std::nullopt;
  acl::Flag flags = 0;
  for (const acl::Flag flag : acl::kFlags) {
    if (service().acl_get_flag_np(flagset, flag) == 1) flags |= flag;
  }
  return flags;
}

std::optional<acl::Permission> permissionsOf(acl::Entry* entry) {
  acl::Permset* permset = nullptr;
  if (service().acl_get_permset(entry, permset) != 0) return std::nullopt;
  acl::Permission permissions = 0;
  for (const acl::Permission permission : acl::kPermissions) {
    if (service().acl_get_perm_np(permset, permission) == 1) permissions |= permission;
  }
  return permissions;
}

struct AclRelease {
  void operator()(acl::List* list) const { (void)service().acl_free(list); }
};
using ReleasedAcl = std::unique_ptr<acl::List, AclRelease>;

class OwnedQualifier {
 public:
  explicit OwnedQualifier(acl::Entry* entry) : qualifier_(service().acl_get_qualifier(entry)) {}
  OwnedQualifier(const OwnedQualifier&) = delete;
  OwnedQualifier& operator=(const OwnedQualifier&) = delete;
  ~OwnedQualifier() {
    if (qualifier_ != nullptr) (void)service().acl_free(qualifier_);
  }
  const Guid* get() const { return qualifier_; }

 private:
  Guid* qualifier_;
};

bool isInheritable(acl::Flag flags, bool includeInherited) {
  if (!includeInherited && (flags & acl::kInherited) != 0) return false;
  return (flags & (acl::kFileInherit | acl::kDirectoryInherit)) != 0;
}

enum class Walk : std::uint8_t { goOn, end, fail };

// Appends the entry to the list whose last link is `last` when it is inheritable.
Walk collect(acl::Entry* entry, bool includeInherited, InheritableACL**& last) {
  const OwnedQualifier qualifier(entry);
  if (qualifier.get() == nullptr) return Walk::end;
  const auto flags = flagsOf(entry);
  if (!flags) return Walk::end;
  if (!isInheritable(*flags, includeInherited)) return Walk::goOn;
  int tag = acl::kUndefinedTag;
  if (service().acl_get_tag_type(entry, tag) != 0) return Walk::end;
  // An entry of a kind that this system does not make cannot be made below either.
  if (tag != acl::kExtendedAllow && tag != acl::kExtendedDeny) return Walk::goOn;
  const auto permissions = permissionsOf(entry);
  if (!permissions) return Walk::fail;
  InheritableACL* node = AllocInheritableACL();
  *node = {qualifier.get()->bytes, tag, *flags, *permissions, nullptr};
  *last = node;
  last = &node->next;
  return Walk::goOn;
}

int collectAll(acl::List* list, InheritableACL*& head, bool includeInherited) {
  InheritableACL** last = &head;
  acl::Entry* entry = nullptr;
  for (int which = acl::kFirstEntry; service().acl_get_entry(list, which, entry) == 0;
       which = acl::kNextEntry) {
    const Walk walk = collect(entry, includeInherited, last);
    if (walk == Walk::goOn) continue;
    if (walk == Walk::end) return 0;
    const int error = errno;
    FreeInheritableACL(head);
    head = nullptr;
    return error;
  }
  return 0;
}

// The old inherited entries go. What fails here is not reported.
void removeInheritedEntries(PrivilegedObject& object) {
  const ReleasedAcl list(object.getAcl());
  if (!list || service().acl_valid(list.get()) != 0) return;
  bool deleted = false;
  acl::Entry* entry = nullptr;
  for (int which = acl::kFirstEntry; service().acl_get_entry(list.get(), which, entry) == 0;
       which = acl::kNextEntry) {
    const auto flags = flagsOf(entry);
    if (!flags || (*flags & acl::kInherited) == 0) continue;
    if (service().acl_delete_entry(list.get(), entry) == 0) deleted = true;
  }
  if (deleted) (void)object.setAcl(list.get());
}

void changeOwners(PrivilegedObject& object, const PrivsToSet& privs) {
  if ((privs.what & kSetOwner) != 0) {
    (void)object.changeOwner(privs.uid, PrivilegedObject::kUnchanged);
  }
  if ((privs.what & kSetGroup) != 0) {
    (void)object.changeOwner(PrivilegedObject::kUnchanged, privs.gid);
  }
}

void changeMode(PrivilegedObject& object, const PrivsToSet& privs, int kind) {
  constexpr std::uint32_t kAnyClass =
      kSetOwnerPermissions | kSetGroupPermissions | kSetOtherPermissions;
  if ((privs.what & kAnyClass) == 0) return;
  mode_t current = 0;
  if (object.readMode(current) != 0) return;
  (void)object.changeMode(inherited_mode(current, privs, kind));
}

// Whether the entry of a level of this depth comes to an object of this kind.
bool applies(const InheritableACL& node, int depth, int kind) {
  if (depth != 1 && (node.flags & acl::kLimitInherit) != 0) return false;
  if (kind == kDirectoryKind) return (node.flags & acl::kDirectoryInherit) != 0;
  if (kind == kRegularKind) return (node.flags & acl::kFileInherit) != 0;
  return true;
}

// The flags of the entry that comes of it. Only-inherit is never carried over.
acl::Flag inheritedFlags(const InheritableACL& node, int kind) {
  if ((node.flags & acl::kLimitInherit) != 0) return acl::kInherited | acl::kLimitInherit;
  if (kind != kDirectoryKind) return acl::kInherited;
  return acl::kInherited | (node.flags & (acl::kDirectoryInherit | acl::kFileInherit));
}

bool setPermissions(acl::Entry* entry, acl::Permission permissions) {
  acl::Permset* permset = nullptr;
  if (service().acl_get_permset(entry, permset) != 0) return false;
  if (service().acl_clear_perms(permset) != 0) return false;
  for (const acl::Permission permission : acl::kPermissions) {
    if ((permissions & permission) != 0 && service().acl_add_perm(permset, permission) != 0) {
      return false;
    }
  }
  return service().acl_set_permset(entry, permset) == 0;
}

bool setFlags(acl::Entry* entry, acl::Flag flags) {
  acl::Flagset* flagset = nullptr;
  if (service().acl_get_flagset_np(entry, flagset) != 0) return false;
  if (service().acl_clear_flags_np(flagset) != 0) return false;
  for (const acl::Flag flag : acl::kFlags) {
    if ((flags & flag) != 0 && service().acl_add_flag_np(flagset, flag) != 0) return false;
  }
  return service().acl_set_flagset_np(entry, flagset) == 0;
}

bool appendEntry(acl::List* list, const InheritableACL& node, int kind) {
  acl::Entry* entry = nullptr;
  return service().acl_create_entry(list, entry) == 0 &&
         service().acl_set_tag_type(entry, node.tag) == 0 &&
         service().acl_set_qualifier(entry, Guid{node.guid}) == 0 &&
         setPermissions(entry, node.permissions & acl::kAllPermissions) &&
         setFlags(entry, inheritedFlags(node, kind));
}

struct FirstLevel {
  const InheritedACLComposite* level = nullptr;
  int depth = 0;
};

FirstLevel firstWithEntries(const InheritedACLComposite* composite) {
  FirstLevel first{composite, 0};
  while (first.level != nullptr && first.level->entries == nullptr) {
    first.level = first.level->next;
    ++first.depth;
  }
  return first;
}

bool appendLevels(acl::List* list, const FirstLevel& first, int kind) {
  int depth = kind == kRegularKind ? first.depth + 1 : first.depth;
  for (const InheritedACLComposite* level = first.level; level != nullptr; level = level->next) {
    for (const InheritableACL* node = level->entries; node != nullptr; node = node->next) {
      if (applies(*node, depth, kind) && !appendEntry(list, *node, kind)) return false;
    }
    ++depth;
  }
  return true;
}

// The object's list, or an empty one when it has none; null with errno.
acl::List* listToExtend(PrivilegedObject& object) {
  acl::List* present = object.getAcl();
  if (present != nullptr || errno != ENOENT) return present;
  return service().acl_init(1);
}

void logFailure(const char* name, int error) {
  services().logger->log(kLogError, std::string("Could not set ACL permissions for ") + name +
                                        ", error: " + sharing_error_string(error));
}

// False with errno when a call failed.
bool SetInheritedACL(PrivilegedObject& object, const FirstLevel& first, int kind) {
  const ReleasedAcl list(listToExtend(object));
  if (!list) return false;
  if (service().acl_valid(list.get()) != 0) return true;
  if (!appendLevels(list.get(), first, kind)) return false;
  assert(list != nullptr);
  if (gDebugBreak != 0) __builtin_trap();  // Deliberate, see the header.
  return object.setAcl(list.get()) == 0;
}

bool hasEntriesToSet(const PrivsToSet& privs) {
  return (privs.what & kSetInheritedEntries) != 0 &&
         firstWithEntries(privs.composite).level != nullptr;
}

}  // namespace

extern "C" {

InheritableACL* AllocInheritableACL() { return new InheritableACL{}; }

InheritedACLComposite* AllocInheritedACLComposite() { return new InheritedACLComposite{}; }

void FreeInheritedACLComposite(InheritedACLComposite* level) {
  if (level == nullptr) return;
  FreeInheritableACL(level->entries);
  delete level;
}

int GetInheritableACL(const char* path, InheritableACL** head, std::int32_t includeInherited) {
  *head = nullptr;
  std::unique_ptr<PrivilegedObject> object;
  if (services().privilegedObjects->open(path, PathUse::reading, object) != 0) return 0;
  return GetInheritableACL(*object, *head, includeInherited != 0);
}

void SetInheritedPrivs(const char* path, const PrivsToSet* privs, int kind) {
  std::unique_ptr<PrivilegedObject> object;
  const int error = services().privilegedObjects->open(path, PathUse::changing, object);
  if (error == 0) {
    SetInheritedPrivs(*object, path, *privs, kind);
  } else if (hasEntriesToSet(*privs)) {
    logFailure(path, error);
  }
}

}  // extern "C"

void FreeInheritableACL(InheritableACL* head) {
  while (head != nullptr) delete std::exchange(head, head->next);
}

int GetInheritableACL(PrivilegedObject& object, InheritableACL*& head, bool includeInherited) {
  head = nullptr;
  const ReleasedAcl list(object.getAcl());
  if (!list || service().acl_valid(list.get()) != 0) return 0;
  return collectAll(list.get(), head, includeInherited);
}

void SetInheritedPrivs(PrivilegedObject& object, const char* name, const PrivsToSet& privs,
                       int kind) {
  const bool entries = (privs.what & kSetInheritedEntries) != 0;
  if (entries) removeInheritedEntries(object);
  changeOwners(object, privs);
  changeMode(object, privs, kind);
  if (!hasEntriesToSet(privs)) return;
  if (!SetInheritedACL(object, firstWithEntries(privs.composite), kind)) logFailure(name, errno);
}

}  // namespace paddock
