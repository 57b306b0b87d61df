#include "platform/linux/accounts/user_groups.h"

#include <grp.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/accounts/nss.h"

namespace paddock {

namespace {

constexpr int kUsualCount = 64;
// The kernel takes no more groups of one process (NGROUPS_MAX).
constexpr int kLargestCount = 65536;

// 0, or ERANGE when there are more than can be.
int listGroups(const NssUser& user, std::vector<gid_t>& groups) {
  for (int room = kUsualCount;;) {
    groups.resize(static_cast<std::size_t>(room));
    int count = room;
    if (::getgrouplist(user.name.c_str(), user.gid, groups.data(), &count) >= 0) {
      groups.resize(static_cast<std::size_t>(count));
      return 0;
    }
    // `count` is then the required size, unless a group is added concurrently.
    room = std::max(count, room * 2);
    if (room > kLargestCount) return ERANGE;
  }
}

}  // namespace

int NssUserGroups::groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) {
  gids.clear();
  try {
    const auto user = nssUser(uid_t{uid});
    if (!user) return 0;
    if (const int error = listGroups(*user, gids); error != 0) {
      gids.clear();
      return error;
    }
  } catch (const DirectoryError& error) {
    return error.status().value_or(EIO);
  }
  std::sort(gids.begin(), gids.end());
  gids.erase(std::unique(gids.begin(), gids.end()), gids.end());
  return 0;
}

int CachedUserGroups::groupsOf(std::uint32_t uid, std::vector<std::uint32_t>& gids) {
  gids.clear();
  return known_.get(uid, gids, [&](auto& found) { return groups_.groupsOf(uid, found); });
}

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
