// The indexing service's entry in a folder's extended ACL.
#include <cerrno>
#include <memory>

#include "platform/acl.h"
#include "platform/membership.h"
#include "platform/services.h"
#include "volumes/md_config_wrappers.h"

namespace paddock {

namespace {

constexpr std::uint32_t kIndexingUid = 89;
constexpr acl::Permission kPermissions[] = {acl::kExecute, acl::kReadData};
constexpr acl::Flag kFlags[] = {acl::kInherited, acl::kFileInherit, acl::kDirectoryInherit};

acl::AclService& calls() { return *services().acl; }

// Lists and qualifiers are released on every way out.
struct Release {
  template <typename Object>
  void operator()(Object* object) const {
    calls().acl_free(object);
  }
};
using OwnedList = std::unique_ptr<acl::List, Release>;
using OwnedQualifier = std::unique_ptr<Guid, Release>;

OwnedList readAcl(const std::string& path) {
  return OwnedList(calls().acl_get_file(path, acl::kTypeExtended));
}

bool isIndexingAccount(const Guid& guid) {
  std::uint32_t id = 0;
  PrincipalType type{};
  return services().membership->guidToId(guid, id, type) == 0 && type == PrincipalType::user &&
         id == kIndexingUid;
}

bool allows(acl::Entry* entry) {
  int tag = acl::kUndefinedTag;
  return calls().acl_get_tag_type(entry, tag) == 0 && tag == acl::kExtendedAllow;
}

bool holdsSearch(acl::Entry* entry) {
  acl::Permset* permset = nullptr;
  return calls().acl_get_permset(entry, permset) == 0 &&
         calls().acl_get_perm_np(permset, acl::kExecute) == 1;
}

bool isInheritedByFolders(acl::Entry* entry) {
  acl::Flagset* flagset = nullptr;
  return calls().acl_get_flagset_np(entry, flagset) == 0 &&
         calls().acl_get_flag_np(flagset, acl::kDirectoryInherit) == 1;
}

bool isLookwiseEntry(acl::Entry* entry) {
  const OwnedQualifier qualifier(calls().acl_get_qualifier(entry));
  return qualifier != nullptr && isIndexingAccount(*qualifier) && allows(entry) &&
         holdsSearch(entry) && isInheritedByFolders(entry);
}

// A list that cannot be read must not be replaced by one of a single entry.
OwnedList readOrStartAcl(const std::string& path) {
  OwnedList list = readAcl(path);
  if (list == nullptr && errno == ENOENT) list.reset(calls().acl_init(1));
  return list;
}

bool setFlags(acl::Entry* entry) {
  acl::Flagset* flagset = nullptr;
  if (calls().acl_get_flagset_np(entry, flagset) != 0 || calls().acl_clear_flags_np(flagset) != 0)
    return false;
  for (const acl::Flag flag : kFlags) {
    if (calls().acl_add_flag_np(flagset, flag) != 0) return false;
  }
  return calls().acl_set_flagset_np(entry, flagset) == 0;
}

bool setPermissions(acl::Entry* entry) {
  acl::Permset* permset = nullptr;
  if (calls().acl_get_permset(entry, permset) != 0) return false;
  for (const acl::Permission permission : kPermissions) {
    if (calls().acl_add_perm(permset, permission) != 0) return false;
  }
  return calls().acl_set_permset(entry, permset) == 0;
}

bool setQualifier(acl::Entry* entry) {
  Guid guid{};
  return services().membership->uidToGuid(kIndexingUid, guid) == 0 &&
         calls().acl_set_qualifier(entry, guid) == 0;
}

bool appendLookwiseEntry(acl::List* list) {
  acl::Entry* entry = nullptr;
  return calls().acl_create_entry(list, entry) == 0 && setFlags(entry) && setPermissions(entry) &&
         calls().acl_set_tag_type(entry, acl::kExtendedAllow) == 0 && setQualifier(entry);
}

}  // namespace

bool MDConfigWrappers::isLookwiseACEPresent(const std::string& path) {
  const OwnedList list = readAcl(path);
  if (list == nullptr || calls().acl_valid(list.get()) != 0) return false;
  acl::Entry* entry = nullptr;
  for (int which = acl::kFirstEntry; calls().acl_get_entry(list.get(), which, entry) == 0;
       which = acl::kNextEntry) {
    if (isLookwiseEntry(entry)) return true;
  }
  return false;
}

bool MDConfigWrappers::addLookwiseACE(const std::string& path) {
  const OwnedList list = readOrStartAcl(path);
  return list != nullptr && appendLookwiseEntry(list.get()) &&
         calls().acl_set_file(path, acl::kTypeExtended, list.get()) == 0;
}

}  // namespace paddock
