// Reading a path's extended ACL as an array of entry dictionaries.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"
#include "platform/acl.h"

namespace paddock {

// An extended ACL that is released when its owner's scope ends.
class OwnedAcl {
 public:
  // Takes over `list`, which may be null. A release that fails is logged in the name of
  // `function`, a text that outlives this object.
  OwnedAcl(acl::List* list, const char* function) : list_(list), function_(function) {}
  OwnedAcl(const OwnedAcl&) = delete;
  OwnedAcl& operator=(const OwnedAcl&) = delete;
  ~OwnedAcl();

  acl::List* get() const { return list_; }
  explicit operator bool() const { return list_ != nullptr; }

 private:
  acl::List* list_;
  const char* function_;
};

// Appends one dictionary (ace_dictionary.h) per entry, in the ACL's order. A path without an
// extended ACL, or whose ACL cannot be read, appends nothing and is a success. INVALID_ACL_ERR for
// an ACL that is not valid; ACL_QUALIFIER_NOT_FOUND_ERR, ACE_PERMSET_NOT_FOUND_ERR and
// ACE_FLAGSET_NOT_FOUND_ERR for an entry that cannot be read, with the entries before it appended.
//
// Per entry one search of the directory, and for a GUID without a record a query of the membership
// service and a second search. DirectoryErrors of the searches propagate. Failures are logged.
Status get_acl(const std::string& path, Array& entries);

// The ACL that a path would have under its parent folder's inheritable entries.

// Appends to `entries`, an empty array, the path's own entries that were not inherited, then those
// of its parent folder that files inherit, marked as inherited; entry dictionaries, see
// ace_dictionary.h. Nothing is written. The statuses of get_acl.
Status inherit_parent_ACL(const std::string& path, Array& entries);

}  // namespace paddock
