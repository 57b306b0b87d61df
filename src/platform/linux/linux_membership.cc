#include "platform/linux/linux_membership.h"

#include <cerrno>
#include <optional>
#include <utility>

#include "platform/directory_schema.h"
#include "platform/linux/account_answers.h"

namespace paddock {

namespace {

constexpr auto kExact = MatchType::caseInsensitiveExact;

struct Kind {
  PrincipalType type;
  const char* recordType;
  const char* idAttribute;
};
constexpr Kind kUserKind{PrincipalType::user, schema::kUsers, schema::kUniqueID};
constexpr Kind kGroupKind{PrincipalType::group, schema::kGroups, schema::kPrimaryGroupID};

const Kind& kindOf(PrincipalType type) {
  return type == PrincipalType::user ? kUserKind : kGroupKind;
}

std::optional<Guid> recordedGuid(DirectoryNode& node, const Principal& principal) {
  const Kind& kind = kindOf(principal.type);
  const Array answers = node.findRecordsOfTypes({kind.recordType}, kind.idAttribute,
                                                std::to_string(principal.id), kExact);
  for (const Value& answer : answers)
    if (const auto guid = firstGuid(answer, schema::kGeneratedUID)) return guid;
  return std::nullopt;
}

std::optional<Principal> recordedPrincipal(DirectoryNode& node, const Guid& guid) {
  const Array answers = node.findRecordsOfTypes({schema::kUsers, schema::kGroups},
                                                schema::kGeneratedUID, guidText(guid), kExact);
  for (const Kind& kind : {kUserKind, kGroupKind}) {
    for (const Value& answer : answers) {
      const std::string* const type = firstValue(answer, schema::kRecordType);
      if (type == nullptr || *type != kind.recordType) continue;
      if (const auto id = firstId(answer, kind.idAttribute)) return Principal{kind.type, *id};
    }
  }
  return std::nullopt;
}

// Asks the nodes in search order until one has an answer: the host's own users and groups do not
// wait for a directory server.
template <typename Ask>
auto firstAnswer(DirectoryService& directory, Ask&& ask)
    -> decltype(ask(std::declval<DirectoryNode&>())) {
  const auto session = directory.openLocal();
  for (const Value& path : session->searchNode()->getAttribute(schema::kSearchPath)) {
    if (path.string() == nullptr) continue;
    if (auto answer = ask(*session->findNode(*path.string()))) return answer;
  }
  return std::nullopt;
}

// Runs work() and returns the errno of what it throws.
template <typename Work>
int errorOf(Work&& work) {
  try {
    return work();
  } catch (const DirectoryError& error) {
    const Status status = error.status().value_or(EIO);
    return status == 0 ? EIO : status;
  }
}

}  // namespace

int LinuxMembership::uidToGuid(std::uint32_t uid, Guid& guid) {
  return toGuid({PrincipalType::user, uid}, guid);
}

int LinuxMembership::gidToGuid(std::uint32_t gid, Guid& guid) {
  return toGuid({PrincipalType::group, gid}, guid);
}

int LinuxMembership::toGuid(const Principal& principal, Guid& guid) {
  guid = {};
  return errorOf([&] {
    const auto recorded =
        firstAnswer(directory_, [&](DirectoryNode& node) { return recordedGuid(node, principal); });
    guid = recorded.value_or(computedGuid(principal));
    return 0;
  });
}

int LinuxMembership::guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) {
  id = 0;
  return errorOf([&] {
    auto principal =
        firstAnswer(directory_, [&](DirectoryNode& node) { return recordedPrincipal(node, guid); });
    if (!principal) principal = computedPrincipal(guid);
    if (!principal) return ENOENT;
    id = principal->id;
    type = principal->type;
    return 0;
  });
}

}  // namespace paddock
