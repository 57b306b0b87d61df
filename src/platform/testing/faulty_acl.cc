#include "platform/testing/faulty_acl.h"

#include <cerrno>

namespace paddock {

bool FaultyAcl::failsNow(const char* call) const {
  if (!fails(call)) return false;
  errno = error();
  return true;
}

acl::List* FaultyAcl::acl_get_file(const std::string& path, int type) {
  if (!failsNow("acl.acl_get_file")) return wrapped().acl_get_file(path, type);
  return nullptr;
}

int FaultyAcl::acl_set_file(const std::string& path, int type, acl::List* list) {
  if (!failsNow("acl.acl_set_file")) return wrapped().acl_set_file(path, type, list);
  return -1;
}

acl::List* FaultyAcl::acl_init(int count) {
  if (!failsNow("acl.acl_init")) return wrapped().acl_init(count);
  return nullptr;
}

int FaultyAcl::acl_create_entry(acl::List* list, acl::Entry*& entry) {
  if (!failsNow("acl.acl_create_entry")) return wrapped().acl_create_entry(list, entry);
  entry = nullptr;
  return -1;
}

int FaultyAcl::acl_get_entry(acl::List* list, int which, acl::Entry*& entry) {
  if (!failsNow("acl.acl_get_entry")) return wrapped().acl_get_entry(list, which, entry);
  entry = nullptr;
  return -1;
}

int FaultyAcl::acl_delete_entry(acl::List* list, acl::Entry* entry) {
  if (!failsNow("acl.acl_delete_entry")) return wrapped().acl_delete_entry(list, entry);
  return -1;
}

int FaultyAcl::acl_get_tag_type(acl::Entry* entry, int& tag) {
  if (!failsNow("acl.acl_get_tag_type")) return wrapped().acl_get_tag_type(entry, tag);
  tag = acl::kUndefinedTag;
  return -1;
}

int FaultyAcl::acl_set_tag_type(acl::Entry* entry, int tag) {
  if (!failsNow("acl.acl_set_tag_type")) return wrapped().acl_set_tag_type(entry, tag);
  return -1;
}

Guid* FaultyAcl::acl_get_qualifier(acl::Entry* entry) {
  if (!failsNow("acl.acl_get_qualifier")) return wrapped().acl_get_qualifier(entry);
  return nullptr;
}

int FaultyAcl::acl_set_qualifier(acl::Entry* entry, const Guid& qualifier) {
  if (!failsNow("acl.acl_set_qualifier")) return wrapped().acl_set_qualifier(entry, qualifier);
  return -1;
}

int FaultyAcl::acl_get_permset(acl::Entry* entry, acl::Permset*& permset) {
  if (!failsNow("acl.acl_get_permset")) return wrapped().acl_get_permset(entry, permset);
  permset = nullptr;
  return -1;
}

int FaultyAcl::acl_set_permset(acl::Entry* entry, acl::Permset* permset) {
  if (!failsNow("acl.acl_set_permset")) return wrapped().acl_set_permset(entry, permset);
  return -1;
}

int FaultyAcl::acl_clear_perms(acl::Permset* permset) {
  if (!failsNow("acl.acl_clear_perms")) return wrapped().acl_clear_perms(permset);
  return -1;
}

int FaultyAcl::acl_add_perm(acl::Permset* permset, acl::Permission permission) {
  if (!failsNow("acl.acl_add_perm")) return wrapped().acl_add_perm(permset, permission);
  return -1;
}

int FaultyAcl::acl_get_perm_np(acl::Permset* permset, acl::Permission permission) {
  if (!failsNow("acl.acl_get_perm_np")) return wrapped().acl_get_perm_np(permset, permission);
  return -1;
}

int FaultyAcl::acl_get_flagset_np(acl::Entry* entry, acl::Flagset*& flagset) {
  if (!failsNow("acl.acl_get_flagset_np")) return wrapped().acl_get_flagset_np(entry, flagset);
  flagset = nullptr;
  return -1;
}

int FaultyAcl::acl_set_flagset_np(acl::Entry* entry, acl::Flagset* flagset) {
  if (!failsNow("acl.acl_set_flagset_np")) return wrapped().acl_set_flagset_np(entry, flagset);
  return -1;
}

int FaultyAcl::acl_clear_flags_np(acl::Flagset* flagset) {
  if (!failsNow("acl.acl_clear_flags_np")) return wrapped().acl_clear_flags_np(flagset);
  return -1;
}

int FaultyAcl::acl_add_flag_np(acl::Flagset* flagset, acl::Flag flag) {
  if (!failsNow("acl.acl_add_flag_np")) return wrapped().acl_add_flag_np(flagset, flag);
  return -1;
}

int FaultyAcl::acl_get_flag_np(acl::Flagset* flagset, acl::Flag flag) {
  if (!failsNow("acl.acl_get_flag_np")) return wrapped().acl_get_flag_np(flagset, flag);
  return -1;
}

int FaultyAcl::acl_valid(acl::List* list) {
  if (!failsNow("acl.acl_valid")) return wrapped().acl_valid(list);
  return -1;
}

int FaultyAcl::acl_free(acl::List* list) {
  const bool fails = failsNow("acl.acl_free.list");
  const int error = errno;
  const int result = wrapped().acl_free(list);
  if (!fails) return result;
  errno = error;
  return -1;
}

int FaultyAcl::acl_free(Guid* qualifier) {
  const bool fails = failsNow("acl.acl_free.qualifier");
  const int error = errno;
  const int result = wrapped().acl_free(qualifier);
  if (!fails) return result;
  errno = error;
  return -1;
}

}  // namespace paddock
