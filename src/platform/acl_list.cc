#include "platform/acl_list.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace paddock::acl {

namespace {

int fail(int error) {
  errno = error;
  return -1;
}

template <typename Values>
bool isOneOf(const Values& values, std::uint32_t value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

bool isWellFormed(const Entry& entry) {
  return entry.tag != kUndefinedTag && entry.qualifier.has_value();
}

}  // namespace

List* AclCalls::acl_init(int count) {
  if (count < 0) {
    errno = EINVAL;
    return nullptr;
  }
  return new List;
}

int AclCalls::acl_create_entry(List* list, Entry*& entry) {
  list->entries.push_back(std::make_unique<Entry>());
  entry = list->entries.back().get();
  return 0;
}

int AclCalls::acl_get_entry(List* list, int which, Entry*& entry) {
  entry = nullptr;
  if (which == kFirstEntry) {
    list->next = 0;
  } else if (which != kNextEntry) {
    return fail(EINVAL);
  }
  if (list->next >= list->entries.size()) return fail(EINVAL);
  entry = list->entries[list->next++].get();
  return 0;
}

int AclCalls::acl_delete_entry(List* list, Entry* entry) {
  const auto found = std::find_if(list->entries.begin(), list->entries.end(),
                                  [entry](const auto& each) { return each.get() == entry; });
  if (found == list->entries.end()) return fail(EINVAL);
  if (static_cast<std::size_t>(found - list->entries.begin()) < list->next) --list->next;
  list->entries.erase(found);
  return 0;
}

int AclCalls::acl_get_tag_type(Entry* entry, int& tag) {
  tag = entry->tag;
  return 0;
}

int AclCalls::acl_set_tag_type(Entry* entry, int tag) {
  if (tag != kExtendedAllow && tag != kExtendedDeny) return fail(EINVAL);
  entry->tag = tag;
  return 0;
}

Guid* AclCalls::acl_get_qualifier(Entry* entry) {
  if (!entry->qualifier) {
    errno = EINVAL;
    return nullptr;
  }
  return new Guid(*entry->qualifier);
}

int AclCalls::acl_set_qualifier(Entry* entry, const Guid& qualifier) {
  entry->qualifier = qualifier;
  return 0;
}

int AclCalls::acl_get_permset(Entry* entry, Permset*& permset) {
  permset = &entry->permset;
  return 0;
}

int AclCalls::acl_set_permset(Entry* entry, Permset* permset) {
  entry->permset = *permset;
  return 0;
}

int AclCalls::acl_clear_perms(Permset* permset) {
  permset->permissions = 0;
  return 0;
}

int AclCalls::acl_add_perm(Permset* permset, Permission permission) {
  if (!isOneOf(kPermissions, permission)) return fail(EINVAL);
  permset->permissions |= permission;
  return 0;
}

int AclCalls::acl_get_perm_np(Permset* permset, Permission permission) {
  if (!isOneOf(kPermissions, permission)) return fail(EINVAL);
  return (permset->permissions & permission) != 0 ? 1 : 0;
}

int AclCalls::acl_get_flagset_np(Entry* entry, Flagset*& flagset) {
  flagset = &entry->flagset;
  return 0;
}

int AclCalls::acl_set_flagset_np(Entry* entry, Flagset* flagset) {
  entry->flagset = *flagset;
  return 0;
}

int AclCalls::acl_clear_flags_np(Flagset* flagset) {
  flagset->flags = 0;
  return 0;
}

int AclCalls::acl_add_flag_np(Flagset* flagset, Flag flag) {
  if (!isOneOf(kFlags, flag)) return fail(EINVAL);
  flagset->flags |= flag;
  return 0;
}

int AclCalls::acl_get_flag_np(Flagset* flagset, Flag flag) {
  if (!isOneOf(kFlags, flag)) return fail(EINVAL);
  return (flagset->flags & flag) != 0 ? 1 : 0;
}

int AclCalls::acl_valid(List* list) {
  if (list->undecodable || list->entries.size() > kMaximumEntries) return fail(EINVAL);
  for (const auto& entry : list->entries) {
    if (!isWellFormed(*entry)) return fail(EINVAL);
  }
  return 0;
}

int AclCalls::acl_free(List* list) {
  delete list;
  return 0;
}

int AclCalls::acl_free(Guid* qualifier) {
  delete qualifier;
  return 0;
}

}  // namespace paddock::acl
