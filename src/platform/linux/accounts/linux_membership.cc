#include "platform/linux/accounts/linux_membership.h"

#include <cerrno>
#include <numeric>
#include <optional>
#include <utility>

#include "platform/directory.h"
#include "platform/linux/accounts/account_searches.h"

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

AccountQuestion questionOf(const Principal& principal) {
  const Kind& kind = kindOf(principal.type);
  return {kind.recordType, kind.idAttribute, std::to_string(principal.id)};
}

std::optional<Guid> guidIn(const Array& answers) {
  for (const Value& answer : answers)
    if (const auto guid = firstGuid(answer, schema::kGeneratedUID)) return guid;
  return std::nullopt;
}

std::optional<Guid> recordedGuid(DirectoryNode& node, const Principal& principal) {
  const AccountQuestion question = questionOf(principal);
  return guidIn(
      node.findRecordsOfTypes({question.type}, question.attribute, question.value, kExact));
}

std::vector<std::optional<Guid>> recordedGuids(DirectoryNode& node,
                                               const std::vector<Principal>& principals) {
  std::vector<std::optional<Guid>> guids;
  guids.reserve(principals.size());
  auto* const together = dynamic_cast<AccountSearches*>(&node);
  if (together == nullptr) {
    for (const Principal& principal : principals) guids.push_back(recordedGuid(node, principal));
    return guids;
  }
  std::vector<AccountQuestion> questions;
  questions.reserve(principals.size());
  for (const Principal& principal : principals) questions.push_back(questionOf(principal));
  for (const Array& answer : together->findEach(questions)) guids.push_back(guidIn(answer));
  return guids;
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

int errnoOfError(const DirectoryError& error) {
  const Status status = error.status().value_or(EIO);
  return status == 0 ? EIO : status;
}

// Nodes that could not answer.
struct Silent {
  int error = 0;  // of the first of them; 0: there was none
  bool anyAnswered = false;

  // Of a question that the others had no answer to, although every id has one of its own.
  int errorForAll() const { return anyAnswered ? 0 : error; }
};

// Asks the nodes in search order until one has an answer: the host's own users and groups do not
// wait for a directory server, and one that is down is left out.
template <typename Ask>
auto firstAnswer(DirectoryService& directory, Silent& silent, Ask&& ask)
    -> decltype(ask(std::declval<DirectoryNode&>())) {
  const auto session = directory.openLocal();
  for (const Value& path : session->searchNode()->getAttribute(schema::kSearchPath)) {
    if (path.string() == nullptr) continue;
    try {
      auto answer = ask(*session->findNode(*path.string()));
      silent.anyAnswered = true;
      if (answer) return answer;
    } catch (const DirectoryError& error) {
      if (silent.error == 0) silent.error = errnoOfError(error);
    }
  }
  return std::nullopt;
}

// Calls work() and returns the errno of its exception.
template <typename Work>
int errorOf(Work&& work) {
  try {
    return work();
  } catch (const DirectoryError& error) {
    return errnoOfError(error);
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
    Silent silent;
    const auto recorded = firstAnswer(
        directory_, silent, [&](DirectoryNode& node) { return recordedGuid(node, principal); });
    if (const int error = silent.errorForAll(); error != 0) return error;
    guid = recorded.value_or(computedGuid(principal));
    return 0;
  });
}

std::vector<Membership::GuidAnswer> LinuxMembership::toGuids(
    const std::vector<Principal>& principals) {
  std::vector<GuidAnswer> answers(principals.size());
  if (principals.empty()) return answers;
  // Those without a record so far.
  std::vector<std::size_t> open(principals.size());
  std::iota(open.begin(), open.end(), std::size_t{0});
  const int error = errorOf([&] {
    Silent silent;
    firstAnswer(directory_, silent, [&](DirectoryNode& node) -> std::optional<bool> {
      std::vector<Principal> asked;
      asked.reserve(open.size());
      for (const std::size_t at : open) asked.push_back(principals[at]);
      const auto guids = recordedGuids(node, asked);
      std::vector<std::size_t> left;
      for (std::size_t number = 0; number < open.size(); ++number) {
        if (guids[number])
          answers[open[number]].guid = *guids[number];
        else
          left.push_back(open[number]);
      }
      open = std::move(left);
      return open.empty() ? std::optional(true) : std::nullopt;
    });
    return silent.errorForAll();
  });
  for (const std::size_t at : open)
    answers[at] = error != 0 ? GuidAnswer{error, {}} : GuidAnswer{0, computedGuid(principals[at])};
  return answers;
}

int LinuxMembership::guidToId(const Guid& guid, std::uint32_t& id, PrincipalType& type) {
  id = 0;
  return errorOf([&] {
    Silent silent;
    auto principal = firstAnswer(
        directory_, silent, [&](DirectoryNode& node) { return recordedPrincipal(node, guid); });
    if (!principal) principal = computedPrincipal(guid);
    if (!principal) return silent.error != 0 ? silent.error : ENOENT;
    id = principal->id;
    type = principal->type;
    return 0;
  });
}

}  // namespace paddock
