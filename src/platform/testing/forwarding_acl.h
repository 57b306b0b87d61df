// An ACL service whose calls are asked of rules (call_rules.h).
//
// A call that fails returns -1 or null with the rule's number in errno, its out value null, and
// never reaches the wrapped service; releasing alone does, since what is released is gone even when
// that fails. Calls are named "acl." and their own name; the two releases "acl.acl_free.list" and
// "acl.acl_free.qualifier". A trace has acl_get_file and acl_set_file, with the path as subject,
// and acl_valid; other calls on lists in memory are left out.
#pragma once

#include <string>

#include "platform/acl.h"
#include "platform/testing/call_rules.h"

namespace paddock {

class ForwardingAcl final : public Forwarder<acl::AclService> {
 public:
  using Forwarder::Forwarder;
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
  // Whether the call fails; errno is then the rule's number.
  bool fails(const char* name, const ServiceCall& call = {}) const;
};

}  // namespace paddock
