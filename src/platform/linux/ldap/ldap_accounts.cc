#include "platform/linux/ldap/ldap_accounts.h"

#include <algorithm>

#include "base/guid.h"
#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_members.h"
#include "platform/linux/ldap/ldap_record_format.h"
#include "platform/linux/ldap/ldap_text.h"
#include "platform/linux/process/case_fold.h"

namespace paddock {

namespace {

// Matches no entry: every entry has a class.
constexpr const char* kNothing = "(!(objectClass=*))";
// What a server names an entry by for good: of no two entries the same.
constexpr const char* kServersGuid = "entryUUID";

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
  bool isCaseExact = false;  // the server's own rule is case-sensitive
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

std::vector<std::string> entryAttributes(const LdapAccountNames& names,
                                         const std::vector<std::string>& types) {
  std::vector<std::string> wanted{"objectClass", "createTimestamp", kServersGuid, names.guid};
  for (const std::string& type : types) {
    wanted.push_back(nameOf(names, type));
    for (const Mapping& mapping : mappingsOf(names, type)) wanted.push_back(mapping.name);
    if (isUsers(type)) continue;
    wanted.push_back(names.memberNames);
    wanted.push_back(names.memberEntries);
  }
  std::sort(wanted.begin(), wanted.end());
  wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
  std::erase(wanted, "");
  return wanted;
}

std::string filterOfType(const LdapAccountNames& names, const std::string& type,
                         const std::string& filter) {
  return allOf({filter, classFilter(classesOf(names, type))});
}

// Servers squeeze blanks and normalise; matching here is what it is on every node.
void eraseOthers(std::vector<LdapAccount>& accounts, const std::string& attribute,
                 const std::string& folded) {
  std::erase_if(accounts, [&](const LdapAccount& account) {
    return !has(account.attributes, attribute, folded);
  });
}

bool isOlder(const LdapAccount& left, const LdapAccount& right) { return left.order < right.order; }

// Whether the attribute says who a user or group is in lists and to the host.
bool saysWho(const std::string& attribute) {
  return attribute == schema::kGeneratedUID || attribute == schema::kUniqueID ||
         attribute == schema::kPrimaryGroupID;
}

std::string keyOf(const std::vector<std::string>& types, const std::string& attribute,
                  const std::string& value) {
  std::string key = attribute + '=' + value;  // no name of an attribute holds a "="
  for (const std::string& type : types) key.append(1, '\0').append(type);
  return key;
}

const std::string* guidIn(const LdapAccount& account) {
  const auto& [attribute, values] = account.attributes.back();
  return attribute == schema::kGeneratedUID ? &values.front() : nullptr;
}

}  // namespace

bool isAccountType(const std::string& type) {
  return type == schema::kUsers || type == schema::kGroups;
}

std::vector<LdapEntry> LdapAccounts::run(const std::string& filter,
                                         const std::vector<std::string>& attributes) {
  const LdapQuery query{.base = access_.options().base,
                        .scope = LdapScope::subtree,
                        .filter = filter,
                        .attributes = attributes};
  return access_.run([&](LdapConnection& connection, bool) { return connection.search(query); });
}

std::vector<LdapEntry> LdapAccounts::search(const std::string& type, const std::string& filter,
                                            const std::vector<std::string>& attributes) {
  return run(filterOfType(access_.options().accounts, type, filter), attributes);
}

std::optional<LdapAccount> LdapAccounts::accountOf(const LdapEntry& entry,
                                                   const std::string& type) {
  const LdapAccountNames& names = access_.options().accounts;
  auto own = namesOf(entry, nameOf(names, type));
  if (own.empty()) return std::nullopt;
  LdapAccount account{entry.dn, creationOrder(entry), {}};
  account.isOfOneType = isOfClass(entry, names.userClasses) != isOfClass(entry, names.groupClasses);
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
  return account;
}

std::vector<LdapAccount> LdapAccounts::accounts(const std::string& type,
                                                const std::string& filter) {
  std::vector<LdapAccount> found;
  const auto wanted = entryAttributes(access_.options().accounts, {type});
  for (const LdapEntry& entry : search(type, filter, wanted))
    if (auto account = accountOf(entry, type)) found.push_back(std::move(*account));
  std::sort(found.begin(), found.end(), isOlder);
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
  eraseOthers(found, attribute, folded);
  return found;
}

std::vector<LdapAccount> LdapAccounts::withValue(const Types& types, const std::string& attribute,
                                                 const std::string& value) {
  if (types.empty()) return {};
  LdapAnswers* const answers = access_.answers();
  if (answers == nullptr || !saysWho(attribute)) return find(types, attribute, value);
  return answers->get(keyOf(types, attribute, value),
                      [&] { return findAndKeep(*answers, types, attribute, value); });
}

// Where the server's own identifier of an entry is the GUID, an account found by id is also the
// complete answer to the search for that GUID.
std::vector<LdapAccount> LdapAccounts::findAndKeep(LdapAnswers& answers, const Types& types,
                                                   const std::string& attribute,
                                                   const std::string& value) {
  const auto asked = answers.now();
  auto found = find(types, attribute, value);
  if (attribute != schema::kGeneratedUID) keepByGuid(answers, found, asked);
  return found;
}

void LdapAccounts::keepByGuid(LdapAnswers& answers, const std::vector<LdapAccount>& found,
                              std::chrono::steady_clock::time_point asked) {
  if (access_.options().accounts.guid != kServersGuid) return;
  for (const LdapAccount& account : found) {
    const std::string* const guid = guidIn(account);
    if (guid != nullptr && account.isOfOneType)
      answers.keep(keyOf({schema::kUsers, schema::kGroups}, schema::kGeneratedUID, *guid),
                   {account}, asked);
  }
}

std::vector<std::vector<LdapAccount>> LdapAccounts::withEach(
    const std::vector<AccountQuestion>& questions) {
  LdapAnswers* const answers = access_.answers();
  if (answers == nullptr) return askEach(questions);
  std::vector<std::string> keys;
  keys.reserve(questions.size());
  for (const auto& [type, attribute, value] : questions)
    keys.push_back(keyOf({type}, attribute, value));
  return answers->getEach(keys, [&](const std::vector<std::size_t>& places) {
    const auto asked = answers->now();
    std::vector<AccountQuestion> open;
    open.reserve(places.size());
    for (const std::size_t at : places) open.push_back(questions[at]);
    auto found = askEach(open);
    for (const auto& accounts : found) keepByGuid(*answers, accounts, asked);
    return found;
  });
}

std::vector<std::vector<LdapAccount>> LdapAccounts::askEach(
    const std::vector<AccountQuestion>& questions) {
  // Servers close a connection with more requests than they take (slapd: 100).
  constexpr std::size_t kTogether = 64;
  const LdapAccountNames& names = access_.options().accounts;
  std::vector<std::vector<LdapAccount>> found;
  found.reserve(questions.size());
  for (std::size_t start = 0; start < questions.size(); start += kTogether) {
    const std::size_t end = std::min(questions.size(), start + kTogether);
    std::vector<LdapQuery> queries;
    for (std::size_t at = start; at < end; ++at) {
      const auto& [type, attribute, value] = questions[at];
      queries.push_back({.base = access_.options().base,
                         .scope = LdapScope::subtree,
                         .filter = filterOfType(names, type, filterFor(type, attribute, value)),
                         .attributes = entryAttributes(names, {type})});
    }
    const auto answers = access_.run(
        [&](LdapConnection& connection, bool) { return connection.searchEach(queries); });
    for (std::size_t at = start; at < end; ++at)
      found.push_back(accountsOf(answers[at - start], questions[at]));
  }
  return found;
}

std::vector<LdapAccount> LdapAccounts::accountsOf(const std::vector<LdapEntry>& entries,
                                                  const AccountQuestion& question) {
  std::vector<LdapAccount> found;
  for (const LdapEntry& entry : entries)
    if (auto account = accountOf(entry, question.type)) found.push_back(std::move(*account));
  std::sort(found.begin(), found.end(), isOlder);
  eraseOthers(found, question.attribute, caseFold(question.value));
  return found;
}

std::vector<LdapAccount> LdapAccounts::find(const Types& types, const std::string& attribute,
                                            const std::string& value) {
  std::vector<std::string> filters;
  for (const std::string& type : types) {
    const std::string filter = attribute == schema::kRecordType ? std::string(kNothing)
                                                                : filterFor(type, attribute, value);
    if (types.size() < 2 || filter == kNothing) return findInTurn(types, attribute, value);
    filters.push_back(filterOfType(access_.options().accounts, type, filter));
  }
  return findTogether(types, anyOf(filters), attribute, value);
}

std::vector<LdapAccount> LdapAccounts::findInTurn(const Types& types, const std::string& attribute,
                                                  const std::string& value) {
  std::vector<LdapAccount> found;
  for (const std::string& type : types)
    for (LdapAccount& account : withValue(type, attribute, value))
      found.push_back(std::move(account));
  return found;
}

std::vector<LdapAccount> LdapAccounts::findTogether(const Types& types, const std::string& filter,
                                                    const std::string& attribute,
                                                    const std::string& value) {
  const LdapAccountNames& names = access_.options().accounts;
  const auto entries = run(filter, entryAttributes(names, types));
  std::vector<LdapAccount> found;
  for (const std::string& type : types) {
    const auto begin = static_cast<std::ptrdiff_t>(found.size());
    for (const LdapEntry& entry : entries) {
      auto account =
          isOfClass(entry, classesOf(names, type)) ? accountOf(entry, type) : std::nullopt;
      if (account) found.push_back(std::move(*account));
    }
    std::sort(found.begin() + begin, found.end(), isOlder);
  }
  // A server may count an entry of a class that is made from a configured one, and only it knows.
  const auto isOther = [&](const LdapEntry& entry) {
    return !isOfClass(entry, names.userClasses) && !isOfClass(entry, names.groupClasses);
  };
  if (std::any_of(entries.begin(), entries.end(), isOther))
    return findInTurn(types, attribute, value);
  eraseOthers(found, attribute, caseFold(value));
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
    if (names.guid == kServersGuid) return equals(names.guid, guid);
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
