// The users and groups of a directory server, as `LdapAccountNames` says that they are kept. They
// are read, never changed.
//
// Users have RecordName, RealName, UniqueID, PrimaryGroupID, NFSHomeDirectory and UserShell; groups
// have RecordName, PrimaryGroupID, GroupMembership (names of users) and NestedGroups (GUIDs of
// groups); both have RecordType and GeneratedUID. Values that are missing or no text are absent; an
// entry without a name is no record.
//
// Names must match by the server's rules on the stored values, and then by the rules of every node.
// Members are searched by the name in their own entry.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/accounts/account_searches.h"
#include "platform/linux/ldap/ldap_access.h"
#include "platform/linux/ldap/ldap_answers.h"

namespace paddock {

// Whether records of the type are users or groups.
bool isAccountType(const std::string& type);

class LdapAccounts {
 public:
  explicit LdapAccounts(LdapAccess& access) : access_(access) {}

  // Each in the order of creation. `type` is an account type, texts are text.
  std::vector<LdapAccount> all(const std::string& type);
  std::vector<LdapAccount> withValue(const std::string& type, const std::string& attribute,
                                     const std::string& value);
  // The same of several types, users before groups. Lookups by GUID or id are cached (LdapAnswers),
  // unless a user has authenticated.
  std::vector<LdapAccount> withValue(const std::vector<std::string>& types,
                                     const std::string& attribute, const std::string& value);
  // The same for several searches, sent to the server together.
  std::vector<std::vector<LdapAccount>> withEach(const std::vector<AccountQuestion>& questions);

 private:
  using Types = std::vector<std::string>;

  std::vector<LdapAccount> find(const Types& types, const std::string& attribute,
                                const std::string& value);
  std::vector<LdapAccount> findInTurn(const Types& types, const std::string& attribute,
                                      const std::string& value);
  std::vector<LdapAccount> findTogether(const Types& types, const std::string& filter,
                                        const std::string& attribute, const std::string& value);
  std::vector<LdapAccount> findAndKeep(LdapAnswers& answers, const Types& types,
                                       const std::string& attribute, const std::string& value);
  void keepByGuid(LdapAnswers& answers, const std::vector<LdapAccount>& found,
                  std::chrono::steady_clock::time_point asked);
  std::vector<std::vector<LdapAccount>> askEach(const std::vector<AccountQuestion>& questions);
  std::vector<LdapAccount> accountsOf(const std::vector<LdapEntry>& entries,
                                      const AccountQuestion& question);
  std::optional<LdapAccount> accountOf(const LdapEntry& entry, const std::string& type);
  std::vector<LdapEntry> run(const std::string& filter, const std::vector<std::string>& attributes);
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
