#include "platform/linux/accounts/linux_accounts.h"

#include <cerrno>
#include <limits>
#include <optional>

#include "base/text.h"
#include "platform/accounts.h"
#include "platform/directory.h"
#include "platform/linux/accounts/nss.h"

namespace paddock {

namespace {

constexpr std::uint32_t kUndefinedId = std::numeric_limits<std::uint32_t>::max();

// Runs find(), an optional value of `found`'s type, and returns ENOENT or the errno of what it
// throws when there is none.
template <typename Found, typename Find>
int lookUp(Found& found, Find&& find) {
  found = {};
  try {
    const auto value = find();
    if (!value) return ENOENT;
    found = *value;
    return 0;
  } catch (const DirectoryError& error) {
    const Status status = error.status().value_or(EIO);
    return status == 0 ? EIO : status;
  }
}

std::optional<std::uint32_t> idIn(const std::optional<std::string>& text) {
  const auto number = text ? parseInteger(*text) : std::nullopt;
  if (!number || *number < 0 || *number >= kUndefinedId) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

std::vector<std::string> membersIn(const DirectoryRecord& group) {
  std::vector<std::string> members;
  for (const Value& member : group.getAttribute(schema::kGroupMembership)) {
    if (member.string() != nullptr) members.push_back(*member.string());
  }
  return members;
}

// The number of the local group whose entry, were it one of the host's, has room in that many
// bytes.
std::optional<std::uint32_t> recordedGid(DirectoryService& directory, const std::string& name,
                                         std::size_t bufferSize) {
  const auto group = directory.openLocal()->localNode()->findRecord(name, schema::kGroups);
  if (group == nullptr) return std::nullopt;
  const auto gid = idIn(group->getAttributeFirstValue(schema::kPrimaryGroupID));
  if (gid && groupEntrySize(name, *gid, membersIn(*group)) > bufferSize) {
    throw DirectoryError(ERANGE, "the group " + name + " is larger than was allowed for");
  }
  return gid;
}

std::optional<std::uint32_t> recordedId(DirectoryService& directory, const std::string& name,
                                        const char* type, const char* idAttribute) {
  const auto record = directory.openLocal()->localNode()->findRecord(name, type);
  return record ? idIn(record->getAttributeFirstValue(idAttribute)) : std::nullopt;
}

std::optional<std::string> recordedName(DirectoryService& directory, std::uint32_t id,
                                        const char* type, const char* idAttribute) {
  const auto node = directory.openLocal()->localNode();
  const Array answers = node->findRecordsOfTypes({type}, idAttribute, std::to_string(id),
                                                 MatchType::caseInsensitiveExact);
  if (answers.empty()) return std::nullopt;
  const Array* names = answers.front().dictionary()->array(schema::kRecordName);
  const std::string* name = names == nullptr || names->empty() ? nullptr : names->front().string();
  return name == nullptr ? std::nullopt : std::optional(*name);
}

// What can be a name: the C library would read another one up to its NUL.
bool isName(const std::string& name) {
  return !name.empty() && name.find('\0') == std::string::npos;
}

}  // namespace

int LinuxAccounts::getpwnam(const std::string& name, std::uint32_t& uid) {
  return lookUp(uid, [&]() -> std::optional<std::uint32_t> {
    if (!isName(name)) return std::nullopt;
    if (const auto user = nssUser(name)) return user->uid;
    return recordedId(directory_, name, schema::kUsers, schema::kUniqueID);
  });
}

int LinuxAccounts::getgrnam(const std::string& name, std::uint32_t& gid) {
  return lookUp(gid, [&]() -> std::optional<std::uint32_t> {
    if (!isName(name)) return std::nullopt;
    if (const auto group = nssGroup(name)) return group->gid;
    return recordedId(directory_, name, schema::kGroups, schema::kPrimaryGroupID);
  });
}

int LinuxAccounts::getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) {
  return lookUp(gid, [&]() -> std::optional<std::uint32_t> {
    if (!isName(name)) return std::nullopt;
    if (const auto id = nssGroupId(name, bufferSize)) return *id;
    return recordedGid(directory_, name, bufferSize);
  });
}

int LinuxAccounts::getpwuid(std::uint32_t uid, std::string& name) {
  return lookUp(name, [&]() -> std::optional<std::string> {
    if (auto user = nssUser(uid_t{uid})) return std::move(user->name);
    return recordedName(directory_, uid, schema::kUsers, schema::kUniqueID);
  });
}

int LinuxAccounts::getgrgid(std::uint32_t gid, std::string& name) {
  return lookUp(name, [&]() -> std::optional<std::string> {
    if (auto group = nssGroup(gid_t{gid})) return std::move(group->name);
    return recordedName(directory_, gid, schema::kGroups, schema::kPrimaryGroupID);
  });
}

}  // namespace paddock
