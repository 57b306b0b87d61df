// An ACL service that passes every call on; derive from it to see or change some of them.
#pragma once

#include <string>

#include "platform/acl.h"

namespace paddock {

class ForwardingAcl : public acl::AclService {
 public:
  // `wrapped` outlives this object.
  explicit ForwardingAcl(acl::AclService& wrapped) : wrapped_(wrapped) {}

  acl::List* acl_get_file(const std::string& path, int type) override;
  int acl_set_file(const std::string& path, int type, acl::List* list) override;
  acl::List* acl_init(int count) override;
  int acl_create_entry(acl::List* list, acl::Entry*& entry) override;
  int acl_get_entry(acl::List* list, int which, acl::Entry*& entry) override;
  int acl_delete_entry(acl::List* list, acl::Entry* entry) override;
  int acl_get_tag_type(acl::Entry* entry, int& tag) override;
  int acl_set_tag_type(acl::Entry* entry, int tag) override;
  Guid* acl_get_qualifier(acl::Entry* entry) override;
  int acl_set_qualifier(acl::Entry* entry, const Guid& qualifier) override;
  int acl_get_permset(acl::Entry* entry, acl::Permset*& permset) override;
  int acl_set_permset(acl::Entry* entry, acl::Permset* permset) override;
  int acl_clear_perms(acl::Permset* permset) override;
  int acl_add_perm(acl::Permset* permset, acl::Permission permission) override;
  int acl_get_perm_np(acl::Permset* permset, acl::Permission permission) override;
  int acl_get_flagset_np(acl::Entry* entry, acl::Flagset*& flagset) override;
  int acl_set_flagset_np(acl::Entry* entry, acl::Flagset* flagset) override;
  int acl_clear_flags_np(acl::Flagset* flagset) override;
  int acl_add_flag_np(acl::Flagset* flagset, acl::Flag flag) override;
  int acl_get_flag_np(acl::Flagset* flagset, acl::Flag flag) override;
  int acl_valid(acl::List* list) override;
  int acl_free(acl::List* list) override;
  int acl_free(Guid* qualifier) override;

 private:
  acl::AclService& wrapped_;
};

}  // namespace paddock
