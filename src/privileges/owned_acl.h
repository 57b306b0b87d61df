// An extended ACL that is released when its owner's scope ends.
#pragma once

#include "platform/acl.h"

namespace paddock {

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

}  // namespace paddock
