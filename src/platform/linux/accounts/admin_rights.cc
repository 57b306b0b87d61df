#include "platform/linux/accounts/admin_rights.h"

#include <algorithm>

#include "base/text.h"
#include "platform/linux/accounts/nss.h"

namespace paddock {

namespace {

bool isNumber(const std::optional<std::string>& text, std::int64_t number) {
  return text && parseInteger(*text) == number;
}

}  // namespace

bool isRoot(const AuthenticatedUser& user) {
  return user.name == "root" || isNumber(user.uniqueId, 0);
}

bool isInSystemGroup(const AuthenticatedUser& user, const std::string& group) {
  const auto found = nssGroup(group);
  if (!found) return false;
  if (std::find(found->members.begin(), found->members.end(), user.name) != found->members.end())
    return true;
  if (isNumber(user.primaryGroupId, found->gid)) return true;
  const auto systemUser = nssUser(user.name);
  return systemUser && systemUser->gid == found->gid;
}

}  // namespace paddock
