// Objects and users for tests of what is judged.
#pragma once

#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

#include "base/guid.h"
#include "effectiveprivs/evaluation.h"

namespace paddock::effectiveprivs {

inline constexpr std::uint32_t kAnna = 1000;
inline constexpr std::uint32_t kBert = 1001;
inline constexpr std::uint32_t kStaff = 50;
inline constexpr std::uint32_t kCrew = 51;
inline constexpr std::uint32_t kOthersGid = 99;

inline Subject userSubject(std::uint32_t uid) { return {.kind = Subject::Kind::user, .id = uid}; }
inline Subject groupSubject(std::uint32_t gid) { return {.kind = Subject::Kind::group, .id = gid}; }
inline Subject subjectOf(Subject::Kind kind) { return {.kind = kind}; }
inline Subject guidSubject(const Guid& guid) { return {.kind = Subject::Kind::guid, .guid = guid}; }

inline Rule allow(const Subject& subject, acl::Permission permissions) {
  return {true, subject, permissions, false};
}
inline Rule deny(const Subject& subject, acl::Permission permissions) {
  return {false, subject, permissions, false};
}

inline HoldingGroup groupOf(std::uint32_t gid, HeldBy by = HeldBy::member,
                            std::optional<std::size_t> through = std::nullopt) {
  return {gid, {computedGuid({PrincipalType::group, gid})}, {}, by, "/Local", through};
}

inline UserMembership memberOf(std::uint32_t uid, std::vector<HoldingGroup> groups) {
  return {true, {computedGuid({PrincipalType::user, uid})}, std::move(groups), {}};
}

// In groups of the host's.
inline Identity anna(const std::vector<HoldingGroup>& groups = {}) {
  std::vector<std::uint32_t> gids;
  for (const HoldingGroup& group : groups) gids.push_back(group.gid.value());
  return {kAnna, memberOf(kAnna, groups), gids};
}
inline Identity unknown(std::uint32_t uid) {
  return {uid, {false, {computedGuid({PrincipalType::user, uid})}, {}, {}}, {}};
}

// Bert's and of a group without members; fields not given are absent.
inline ObjectPrivileges objectWith(mode_t mode, bool isFolder = false) {
  return {kBert,    kOthersGid,          posix_acl::classesOf(mode),
          isFolder, (mode & 01000) != 0, std::nullopt};
}
inline ObjectPrivileges fileWith(mode_t mode) { return objectWith(mode); }
inline ObjectPrivileges folderWith(mode_t mode) { return objectWith(mode, true); }
inline ObjectPrivileges owned(ObjectPrivileges object, std::uint32_t uid, std::uint32_t gid) {
  object.uid = uid;
  object.gid = gid;
  return object;
}
inline ObjectPrivileges listed(ObjectPrivileges object, std::vector<Rule> rules,
                               bool complete = false) {
  object.list = RuleList{std::move(rules), complete};
  return object;
}

}  // namespace paddock::effectiveprivs
