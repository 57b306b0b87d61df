#include "platform/linux/ldap/ldap_members.h"

#include <ldap.h>

#include <algorithm>
#include <unordered_set>

#include "base/guid.h"
#include "base/text.h"
#include "platform/directory_values.h"
#include "platform/linux/ldap/ldap_text.h"

namespace paddock {

namespace {

constexpr std::size_t kMostLookedUp = 10'000;
constexpr std::size_t kTogether = 100;

bool isSameAttribute(const std::string& left, const std::string& right) {
  return asciiLower(left) == asciiLower(right);
}

std::vector<std::string> attributesOfMembers(const LdapAccountNames& names) {
  return {"objectClass", names.userName, names.guid};
}

// Each once, in the order in which they were found.
class Collection {
 public:
  void add(const std::string& text) {
    if (!text.empty() && known_.insert(text).second) texts_.push_back(text);
  }
  std::vector<std::string> take() { return std::move(texts_); }

 private:
  std::vector<std::string> texts_;
  std::unordered_set<std::string> known_;
};

struct Members {
  Collection users;
  Collection groups;

  LdapMembers take() { return {users.take(), groups.take()}; }
};

void addMember(const LdapEntry& entry, const LdapAccountNames& names, Members& members) {
  if (isOfClass(entry, names.userClasses)) {
    const auto own = namesOf(entry, names.userName);
    if (!own.empty()) members.users.add(own.front());
  } else if (isOfClass(entry, names.groupClasses)) {
    members.groups.add(guidOf(entry, names));
  }
}

// What the server says of who is in the group.
void addByMemberOf(LdapAccess& access, const LdapEntry& group, Members& members) {
  const LdapAccountNames& names = access.options().accounts;
  const LdapQuery query{.base = access.options().base,
                        .scope = LdapScope::subtree,
                        .filter = equals(names.memberOf, group.dn),
                        .attributes = attributesOfMembers(names)};
  for (const LdapEntry& entry :
       access.run([&](LdapConnection&connection, bool) { return connection.search(query); }))
    addMember(entry, names, members);
}

void lookUp(LdapAccess& access, const std::vector<std::string>& dns, Members& members) {
  const LdapAccountNames& names = access.options().accounts;
  for (std::size_t start = 0; start < dns.size(); start += kTogether) {
    std::vector<LdapQuery> queries;
    for (std::size_t at = start; at < std::min(dns.size(), start + kTogether); ++at)
      queries.push_back({.base = dns[at],
                         .scope = LdapScope::base,
                         .filter = "(objectClass=*)",
                         .attributes = attributesOfMembers(names)});
    for (const auto& answer : access.run(
             [&](LdapConnection&connection, bool) { return connection.searchEach(queries); }))
      for (const LdapEntry& entry : answer) addMember(entry, names, members);
  }
}

}  // namespace

LdapMembers membersOf(LdapAccess& access, const LdapEntry& group) {
  const LdapAccountNames& names = access.options().accounts;
  Members members;
  for (const std::string& name : group.values(names.memberNames))
    if (isDirectoryText(name)) members.users.add(name);
  std::vector<std::string> unknown;
  for (const std::string& dn : group.values(names.memberEntries)) {
    const auto component = firstComponent(dn);
    const auto named = std::find_if(component.begin(), component.end(), [&](const auto& part) {
      return isSameAttribute(part.first, names.userName);
    });
    if (named != component.end() && isDirectoryText(named->second))
      members.users.add(named->second);
    else if (!component.empty())
      unknown.push_back(dn);
  }
  if (unknown.empty()) return members.take();
  if (!names.memberOf.empty()) {
    addByMemberOf(access, group, members);
    return members.take();
  }
  if (unknown.size() > kMostLookedUp)
    throw LdapError(LDAP_RESULTS_TOO_LARGE,
                    access.options().path() + ": the members of " + group.dn, "");
  lookUp(access, unknown, members);
  return members.take();
}

std::string guidOf(const LdapEntry& entry, const LdapAccountNames& names) {
  const auto guid = parseGuid(entry.first(names.guid));
  return guid ? guidText(*guid) : std::string();
}

std::vector<std::string> namesOf(const LdapEntry& entry, const std::string& attribute) {
  std::vector<std::string> names = entry.values(attribute);
  std::erase_if(names,
                [](const std::string& name) { return name.empty() || !isDirectoryText(name); });
  if (names.size() < 2) return names;
  std::unordered_set<std::string> first;
  for (const auto& [type, value] : firstComponent(entry.dn))
    if (isSameAttribute(type, attribute)) first.insert(value);
  std::stable_partition(names.begin(), names.end(),
                        [&](const std::string& name) { return first.contains(name); });
  return names;
}

bool isOfClass(const LdapEntry& entry, const std::vector<std::string>& classes) {
  const auto& has = entry.values("objectClass");
  return std::any_of(has.begin(), has.end(), [&](const std::string& name) {
    return std::any_of(classes.begin(), classes.end(),
                       [&](const std::string& wanted) { return isSameAttribute(name, wanted); });
  });
}

std::string classFilter(const std::vector<std::string>& classes) {
  std::vector<std::string> filters;
  filters.reserve(classes.size());
  for (const std::string& name : classes) filters.push_back(equals("objectClass", name));
  return anyOf(filters);
}

}  // namespace paddock
