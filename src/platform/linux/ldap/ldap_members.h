// The members of a group of a directory server.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/ldap/ldap_access.h"

namespace paddock {

struct LdapMembers {
  std::vector<std::string> users;   // names
  std::vector<std::string> groups;  // GUIDs
};

// The direct members of the group that the entry is: by their names, and by their entries, which
// are looked up where their DN does not identify them. Deleted members are omitted. EOVERFLOW when
// more than 10,000 lookups are needed.
LdapMembers membersOf(LdapAccess& access, const LdapEntry& group);

// The GUID of an entry in its canonical form; empty when it has none.
std::string guidOf(const LdapEntry& entry, const LdapAccountNames& names);
// The names of an entry, the one that its place is named by first.
std::vector<std::string> namesOf(const LdapEntry& entry, const std::string& attribute);
// Whether the entry is of one of the classes.
bool isOfClass(const LdapEntry& entry, const std::vector<std::string>& classes);
// "(|(objectClass=...)...)"
std::string classFilter(const std::vector<std::string>& classes);

}  // namespace paddock
