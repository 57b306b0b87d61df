#include "platform/testing/forwarding_acl.h"

#include <cerrno>

namespace paddock {

bool ForwardingAcl::fails(const char* name, const ServiceCall& call) const {
  const int number = ask(name, call);
  if (number != 0) errno = number;
  return number != 0;
}

acl::List* ForwardingAcl::acl_get_file(const std::string& path, int type) {
  if (!fails("acl.acl_get_file", {"acl_get_file", path, ""}))
    return wrapped().acl_get_file(path, type);
  return nullptr;
}

int ForwardingAcl::acl_set_file(const std::string& path, int type, acl::List* list) {
  if (!fails("acl.acl_set_file", {"acl_set_file", path, ""}))
    return wrapped().acl_set_file(path, type, list);
  return -1;
}

acl::List* ForwardingAcl::acl_init(int count) {
  if (!fails("acl.acl_init")) return wrapped().acl_init(count);
  return nullptr;
}

int ForwardingAcl::acl_create_entry(acl::List* list, acl::Entry*& entry) {
  if (!fails("acl.acl_create_entry")) return wrapped().acl_create_entry(list, entry);
  entry = nullptr;
  return -1;
}

int ForwardingAcl::acl_get_entry(acl::List* list, int which, acl::Entry*& entry) {
  if (!fails("acl.acl_get_entry")) return wrapped().acl_get_entry(list, which, entry);
  entry = nullptr;
  return -1;
}

int ForwardingAcl::acl_delete_entry(acl::List* list, acl::Entry* entry) {
  if (!fails("acl.acl_delete_entry")) return wrapped().acl_delete_entry(list, entry);
  return -1;
}

int ForwardingAcl::acl_get_tag_type(acl::Entry* entry, int& tag) {
  if (!fails("acl.acl_get_tag_type")) return wrapped().acl_get_tag_type(entry, tag);
  tag = acl::kUndefinedTag;
  return -1;
}

int ForwardingAcl::acl_set_tag_type(acl::Entry* entry, int tag) {
  if (!fails("acl.acl_set_tag_type")) return wrapped().acl_set_tag_type(entry, tag);
  return -1;
}

Guid* ForwardingAcl::acl_get_qualifier(acl::Entry* entry) {
  if (!fails("acl.acl_get_qualifier")) return wrapped().acl_get_qualifier(entry);
  return nullptr;
}

int ForwardingAcl::acl_set_qualifier(acl::Entry* entry, const Guid& qualifier) {
  if (!fails("acl.acl_set_qualifier")) return wrapped().acl_set_qualifier(entry, qualifier);
  return -1;
}

int ForwardingAcl::acl_get_permset(acl::Entry* entry, acl::Permset*& permset) {
  if (!fails("acl.acl_get_permset")) return wrapped().acl_get_permset(entry, permset);
  permset = nullptr;
  return -1;
}

int ForwardingAcl::acl_set_permset(acl::Entry* entry, acl::Permset* permset) {
  if (!fails("acl.acl_set_permset")) return wrapped().acl_set_permset(entry, permset);
  return -1;
}

int ForwardingAcl::acl_clear_perms(acl::Permset* permset) {
  if (!fails("acl.acl_clear_perms")) return wrapped().acl_clear_perms(permset);
  return -1;
}

int ForwardingAcl::acl_add_perm(acl::Permset* permset, acl::Permission permission) {
  if (!fails("acl.acl_add_perm")) return wrapped().acl_add_perm(permset, permission);
  return -1;
}

int ForwardingAcl::acl_get_perm_np(acl::Permset* permset, acl::Permission permission) {
  if (!fails("acl.acl_get_perm_np")) return wrapped().acl_get_perm_np(permset, permission);
  return -1;
}

int ForwardingAcl::acl_get_flagset_np(acl::Entry* entry, acl::Flagset*& flagset) {
  if (!fails("acl.acl_get_flagset_np")) return wrapped().acl_get_flagset_np(entry, flagset);
  flagset = nullptr;
  return -1;
}

int ForwardingAcl::acl_set_flagset_np(acl::Entry* entry, acl::Flagset* flagset) {
  if (!fails("acl.acl_set_flagset_np")) return wrapped().acl_set_flagset_np(entry, flagset);
  return -1;
}

int ForwardingAcl::acl_clear_flags_np(acl::Flagset* flagset) {
  if (!fails("acl.acl_clear_flags_np")) return wrapped().acl_clear_flags_np(flagset);
  return -1;
}

int ForwardingAcl::acl_add_flag_np(acl::Flagset* flagset, acl::Flag flag) {
  if (!fails("acl.acl_add_flag_np")) return wrapped().acl_add_flag_np(flagset, flag);
  return -1;
}

int ForwardingAcl::acl_get_flag_np(acl::Flagset* flagset, acl::Flag flag) {
  if (!fails("acl.acl_get_flag_np")) return wrapped().acl_get_flag_np(flagset, flag);
  return -1;
}

int ForwardingAcl::acl_valid(acl::List* list) {
  if (!fails("acl.acl_valid", {"acl_valid", "", ""})) return wrapped().acl_valid(list);
  return -1;
}

int ForwardingAcl::acl_free(acl::List* list) {
  const bool failed = fails("acl.acl_free.list");
  const int error = errno;
  const int result = wrapped().acl_free(list);
  if (!failed) return result;
  errno = error;
  return -1;
}

int ForwardingAcl::acl_free(Guid* qualifier) {
  const bool failed = fails("acl.acl_free.qualifier");
  const int error = errno;
  const int result = wrapped().acl_free(qualifier);
  if (!failed) return result;
  errno = error;
  return -1;
}

}  // namespace paddock
