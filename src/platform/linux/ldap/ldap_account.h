// A user or group of a directory server.
#pragma once

#include <string>
#include <vector>

#include "platform/directory_values.h"

namespace paddock {

struct LdapAccount {
  std::string dn;
  std::string order;                        // sorts records in the order of their creation
  std::vector<AttributeChange> attributes;  // RecordName first, RecordType second
  // Whether the entry is of the classes of this type and of none of the other type's.
  bool isOfOneType = true;
};

}  // namespace paddock
