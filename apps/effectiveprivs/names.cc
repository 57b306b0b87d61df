#include "effectiveprivs/names.h"

#include <algorithm>
#include <optional>

#include "base/principal.h"

namespace paddock::effectiveprivs {

const char* permissionName(acl::Permission permission, bool isFolder) {
  switch (permission) {
    case acl::kReadData:
      return isFolder ? "list" : "read-data";
    case acl::kWriteData:
      return isFolder ? "add-file" : "write-data";
    case acl::kExecute:
      return isFolder ? "search" : "execute";
    case acl::kDelete:
      return "delete";
    case acl::kAppendData:
      return isFolder ? "add-folder" : "append";
    case acl::kDeleteChild:
      return "delete-child";
    case acl::kReadAttributes:
      return "read-attributes";
    case acl::kWriteAttributes:
      return "write-attributes";
    case acl::kReadExtendedAttributes:
      return "read-extended";
    case acl::kWriteExtendedAttributes:
      return "write-extended";
    case acl::kReadSecurity:
      return "read-security";
    case acl::kWriteSecurity:
      return "write-security";
    default:
      return "change-owner";
  }
}

namespace {

// The name of a SID that means the same everywhere, else the SID.
std::string sidName(const std::string& sid) {
  const WellKnownPrincipal* known =
      wellKnownPrincipal([&](const WellKnownPrincipal& one) { return one.sid == sid; });
  return known != nullptr ? std::string(known->name) : sid;
}

}  // namespace

std::string userName(Accounts& accounts, std::uint32_t uid) {
  std::string name;
  return accounts.getpwuid(uid, name) == 0 ? name : std::to_string(uid);
}

std::string groupName(Accounts& accounts, std::uint32_t gid) {
  std::string name;
  return accounts.getgrgid(gid, name) == 0 ? name : std::to_string(gid);
}

std::string groupName(Accounts& accounts, const HoldingGroup& group) {
  if (!group.name.empty()) return group.name;
  if (group.gid) return groupName(accounts, *group.gid);
  return group.guids.empty() ? std::string() : guidText(group.guids.front());
}

std::string subjectName(Accounts& accounts, const Subject& subject) {
  switch (subject.kind) {
    case Subject::Kind::user:
      return "user:" + userName(accounts, subject.id);
    case Subject::Kind::group:
      return "group:" + groupName(accounts, subject.id);
    case Subject::Kind::guid:
    case Subject::Kind::unknown:
      return subject.sid.empty() ? guidText(subject.guid) : sidName(subject.sid);
    case Subject::Kind::accounts:
      return "Samba's accounts (" + subject.sid + ")";
    case Subject::Kind::network:
      return "network";
    case Subject::Kind::everyone:
      return "everyone";
    case Subject::Kind::authenticated:
      return "authenticated users";
    case Subject::Kind::ownerRights:
      return "owner rights";
    case Subject::Kind::nobody:
      break;
  }
  return subject.sid.empty() ? "nobody" : sidName(subject.sid);
}

std::vector<std::string> wayTo(Accounts& accounts, const UserMembership& membership,
                               std::size_t group) {
  std::vector<std::string> names;
  for (std::optional<std::size_t> at = group; at; at = membership.groups[*at].through)
    names.push_back(groupName(accounts, membership.groups[*at]));
  std::reverse(names.begin(), names.end());
  return names;
}

}  // namespace paddock::effectiveprivs
