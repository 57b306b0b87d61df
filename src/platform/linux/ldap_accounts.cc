#include "platform/linux/ldap_accounts.h"

#include <algorithm>

#include "base/guid.h"
#include "base/text.h"
#include "platform/directory_schema.h"
#include "platform/linux/case_fold.h"
#include "platform/linux/ldap_members.h"
#include "platform/linux/ldap_record_format.h"
#include "platform/linux/ldap_text.h"

namespace paddock {

namespace {

// Matches no entry: every entry has a class.
constexpr const char* kNothing = "(!(objectClass=*))";

bool isUsers(const std::string& type) { return type == schema::kUsers; }

const std::vector<std::string>& classesOf(const LdapAccountNames& names, const std::string& type) {
  return isUsers(type) ? names.userClasses : names.groupClasses;
}

const std::string& nameOf(const LdapAccountNames& names, const std::string& type) {
  return isUsers(type) ? names.userName : names.groupName;
}

// An attribute of a record and of its entry.
struct Mapping {
  const char* attribute;
  std::string name;
  bool isCaseExact = false;  // the server's own rule tells letter cases apart
};

std::vector<Mapping> mappingsOf(const LdapAccountNames& names, const std::string& type) {
  if (!isUsers(type)) return {{schema::kPrimaryGroupID, names.groupId}};
  return {{schema::kRealName, names.userRealName},
          {schema::kUniqueID, names.userId},
          {schema::kPrimaryGroupID, names.userGroupId},
          {schema::kHomeDirectory, names.userHome, true},
          {schema::kUserShell, names.userShell, true}};
}

void addTexts(std::vector<AttributeChange>& attributes, const char* attribute,
              std::vector<std::string> values) {
  std::erase_if(values, [](const std::string& value) { return !isDirectoryText(value); });
  if (!values.empty()) attributes.push_back({attribute, std::move(values)});
}

bool has(const std::vector<AttributeChange>& attributes, const std::string& attribute,
         const std::string& folded) {
  return std::any_of(attributes.begin(), attributes.end(), [&](const AttributeChange& one) {
    return one.attribute == attribute &&
           std::any_of(one.values.begin(), one.values.end(),
                       [&](const std::string& value) { return caseFold(value) == folded; });
  });
}

std::string lowerGuid(const std::string& text) {
  const auto guid = parseGuid(text);
  return guid ? asciiLower(guidText(*guid)) : std::string();
}

std::vector<std::string> entryAttributes(const LdapAccountNames& names, const std::string& type) {
  std::vector<std::string> wanted{"objectClass", "createTimestamp", "entryUUID",
                                  nameOf(names, type), names.guid};
  for (const Mapping& mapping : mappingsOf(names, type)) wanted.push_back(mapping.name);
  if (!isUsers(type)) {
    wanted.push_back(names.memberNames);
    wanted.push_back(names.memberEntries);
  }
  std::sort(wanted.begin(), wanted.end());
  wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
  std::erase(wanted, "");
  return wanted;
}

}  // namespace

bool isAccountType(const std::string& type) {
  return type == schema::kUsers || type == schema::kGroups;
}

std::vector<LdapEntry> LdapAccounts::search(const std::string& type, const std::string& filter,
                                            const std::vector<std::string>& attributes) {
  const LdapAccountNames& names = access_.options().accounts;
  const LdapQuery query{.base = access_.options().base,
                        .scope = LdapScope::subtree,
                        .filter = allOf({filter, classFilter(classesOf(names, type))}),
                        .attributes = attributes};
  return access_.run([&](LdapConnection& connection, bool) { return connection.search(query); });
}

std::vector<LdapAccount> LdapAccounts::accounts(const std::string& type,
                                                const std::string& filter) {
  const LdapAccountNames& names = access_.options().accounts;
  std::vector<LdapAccount> found;
  for (const LdapEntry& entry : search(type, filter, entryAttributes(names, type))) {
    LdapAccount account{entry.dn, creationOrder(entry), {}};
    auto own = namesOf(entry, nameOf(names, type));
    if (own.empty()) continue;
    account.attributes.push_back({schema::kRecordName, std::move(own)});
    account.attributes.push_back({schema::kRecordType, {type}});
    for (const Mapping& mapping : mappingsOf(names, type))
      if (!mapping.name.empty())
        addTexts(account.attributes, mapping.attribute, entry.values(mapping.name));
    if (!isUsers(type)) {
      LdapMembers members = membersOf(access_, entry);
      addTexts(account.attributes, schema::kGroupMembership, std::move(members.users));
      addTexts(account.attributes, schema::kNestedGroups, std::move(members.groups));
    }
    if (const std::string guid = guidOf(entry, names); !guid.empty())
      account.attributes.push_back({schema::kGeneratedUID, {guid}});
    found.push_back(std::move(account));
  }
  std::sort(found.begin(), found.end(), [](const LdapAccount& left, const LdapAccount& right) {
    return left.order < right.order;
  });
  return found;
}

std::vector<LdapAccount> LdapAccounts::all(const std::string& type) {
  return accounts(type, "(" + nameOf(access_.options().accounts, type) + "=*)");
}

std::vector<LdapAccount> LdapAccounts::withValue(const std::string& type,
                                                 const std::string& attribute,
                                                 const std::string& value) {
  const std::string folded = caseFold(value);
  if (attribute == schema::kRecordType)
    return caseFold(type) == folded ? all(type) : std::vector<LdapAccount>();
  const std::string filter = filterFor(type, attribute, value);
  if (filter == kNothing) return {};
  auto found = accounts(type, filter);
  // Servers squeeze blanks and normalise; matching here is what it is on every node.
  std::erase_if(found, [&](const LdapAccount& account) {
    return !has(account.attributes, attribute, folded);
  });
  return found;
}

std::string LdapAccounts::filterFor(const std::string& type, const std::string& attribute,
                                    const std::string& value) {
  const LdapAccountNames& names = access_.options().accounts;
  if (value.empty()) return kNothing;
  if (attribute == schema::kRecordName) return equals(nameOf(names, type), value);
  if (attribute == schema::kGeneratedUID) {
    const std::string guid = lowerGuid(value);
    if (guid.empty() || names.guid.empty()) return kNothing;
    if (names.guid == "entryUUID") return equals(names.guid, guid);
    return anyOf({equals(names.guid, guid), equals(names.guid, guidText(*parseGuid(guid)))});
  }
  if (!isUsers(type) && attribute == schema::kGroupMembership) return memberFilter(value);
  if (!isUsers(type) && attribute == schema::kNestedGroups) return nestedFilter(value);
  for (const Mapping& mapping : mappingsOf(names, type)) {
    if (attribute != mapping.attribute || mapping.name.empty()) continue;
    return mapping.isCaseExact ? "(" + mapping.name + "=*)" : equals(mapping.name, value);
  }
  return kNothing;
}

// The groups of a user: a group names it as its own entry does, or points to that entry.
std::string LdapAccounts::memberFilter(const std::string& userName) {
  const LdapAccountNames& names = access_.options().accounts;
  std::vector<std::string> filters;
  const auto add = [&filters](const std::string& attribute, const std::string& value) {
    const std::string filter = equals(attribute, value);
    if (!attribute.empty() && std::find(filters.begin(), filters.end(), filter) == filters.end())
      filters.push_back(filter);
  };
  add(names.memberNames, userName);
  const std::vector<std::string> wanted{"objectClass", names.userName};
  for (const LdapEntry& user : search(schema::kUsers, equals(names.userName, userName), wanted)) {
    for (const std::string& name : namesOf(user, names.userName)) add(names.memberNames, name);
    add(names.memberEntries, user.dn);
  }
  return filters.empty() ? kNothing : anyOf(filters);
}

std::string LdapAccounts::nestedFilter(const std::string& guid) {
  const LdapAccountNames& names = access_.options().accounts;
  const std::string ofGuid = filterFor(schema::kGroups, schema::kGeneratedUID, guid);
  if (ofGuid == kNothing || names.memberEntries.empty()) return kNothing;
  std::vector<std::string> filters;
  for (const LdapEntry& group : search(schema::kGroups, ofGuid, {"objectClass"}))
    filters.push_back(equals(names.memberEntries, group.dn));
  return filters.empty() ? kNothing : anyOf(filters);
}

}  // namespace paddock
