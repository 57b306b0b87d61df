// The users and groups of a directory server, as `LdapAccountNames` says that they are kept. They
// are read, never changed.
//
// Users have RecordName, RealName, UniqueID, PrimaryGroupID, NFSHomeDirectory and UserShell; groups
// have RecordName, PrimaryGroupID, GroupMembership (names of users) and NestedGroups (GUIDs of
// groups); both have RecordType and GeneratedUID. What an entry does not have, or what is no text,
// is absent; an entry without a name is no record.
//
// Names match what the server's rules find among the values that are stored, and then what matches
// on every node. Members are asked for by the name that their own entry has.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/directory_values.h"
#include "platform/linux/ldap_access.h"

namespace paddock {

struct LdapAccount {
  std::string dn;
  std::string order;                        // sorts records in the order of their creation
  std::vector<AttributeChange> attributes;  // RecordName first, RecordType second
};

// Whether records of the type are users or groups.
bool isAccountType(const std::string& type);

class LdapAccounts {
 public:
  explicit LdapAccounts(LdapAccess& access) : access_(access) {}

  // Each in the order of creation. `type` is an account type, texts are text.
  std::vector<LdapAccount> all(const std::string& type);
  std::vector<LdapAccount> withValue(const std::string& type, const std::string& attribute,
                                     const std::string& value);

 private:
  std::vector<LdapEntry> search(const std::string& type, const std::string& filter,
                                const std::vector<std::string>& more);
  std::vector<LdapAccount> accounts(const std::string& type, const std::string& filter);
  std::string filterFor(const std::string& type, const std::string& attribute,
                        const std::string& value);
  std::string memberFilter(const std::string& userName);
  std::string nestedFilter(const std::string& guid);

  LdapAccess& access_;
};

}  // namespace paddock
