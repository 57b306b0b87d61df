#include "platform/testing/forwarding_acl.h"

namespace paddock {

acl::List* ForwardingAcl::acl_get_file(const std::string& path, int type) {
  return wrapped_.acl_get_file(path, type);
}

int ForwardingAcl::acl_set_file(const std::string& path, int type, acl::List* list) {
  return wrapped_.acl_set_file(path, type, list);
}

acl::List* ForwardingAcl::acl_init(int count) { return wrapped_.acl_init(count); }

int ForwardingAcl::acl_create_entry(acl::List* list, acl::Entry*& entry) {
  return wrapped_.acl_create_entry(list, entry);
}

int ForwardingAcl::acl_get_entry(acl::List* list, int which, acl::Entry*& entry) {
  return wrapped_.acl_get_entry(list, which, entry);
}

int ForwardingAcl::acl_delete_entry(acl::List* list, acl::Entry* entry) {
  return wrapped_.acl_delete_entry(list, entry);
}

int ForwardingAcl::acl_get_tag_type(acl::Entry* entry, int& tag) {
  return wrapped_.acl_get_tag_type(entry, tag);
}

int ForwardingAcl::acl_set_tag_type(acl::Entry* entry, int tag) {
  return wrapped_.acl_set_tag_type(entry, tag);
}

Guid* ForwardingAcl::acl_get_qualifier(acl::Entry* entry) {
  return wrapped_.acl_get_qualifier(entry);
}

int ForwardingAcl::acl_set_qualifier(acl::Entry* entry, const Guid& qualifier) {
  return wrapped_.acl_set_qualifier(entry, qualifier);
}

int ForwardingAcl::acl_get_permset(acl::Entry* entry, acl::Permset*& permset) {
  return wrapped_.acl_get_permset(entry, permset);
}

int ForwardingAcl::acl_set_permset(acl::Entry* entry, acl::Permset* permset) {
  return wrapped_.acl_set_permset(entry, permset);
}

int ForwardingAcl::acl_clear_perms(acl::Permset* permset) {
  return wrapped_.acl_clear_perms(permset);
}

int ForwardingAcl::acl_add_perm(acl::Permset* permset, acl::Permission permission) {
  return wrapped_.acl_add_perm(permset, permission);
}

int ForwardingAcl::acl_get_perm_np(acl::Permset* permset, acl::Permission permission) {
  return wrapped_.acl_get_perm_np(permset, permission);
}

int ForwardingAcl::acl_get_flagset_np(acl::Entry* entry, acl::Flagset*& flagset) {
  return wrapped_.acl_get_flagset_np(entry, flagset);
}

int ForwardingAcl::acl_set_flagset_np(acl::Entry* entry, acl::Flagset* flagset) {
  return wrapped_.acl_set_flagset_np(entry, flagset);
}

int ForwardingAcl::acl_clear_flags_np(acl::Flagset* flagset) {
  return wrapped_.acl_clear_flags_np(flagset);
}

int ForwardingAcl::acl_add_flag_np(acl::Flagset* flagset, acl::Flag flag) {
  return wrapped_.acl_add_flag_np(flagset, flag);
}

int ForwardingAcl::acl_get_flag_np(acl::Flagset* flagset, acl::Flag flag) {
  return wrapped_.acl_get_flag_np(flagset, flag);
}

int ForwardingAcl::acl_valid(acl::List* list) { return wrapped_.acl_valid(list); }

int ForwardingAcl::acl_free(acl::List* list) { return wrapped_.acl_free(list); }

int ForwardingAcl::acl_free(Guid* qualifier) { return wrapped_.acl_free(qualifier); }

}  // namespace paddock
