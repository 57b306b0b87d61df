#include "daemon/audit/access_policy.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "base/system_call.h"

namespace paddock {
namespace {

constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 16U << 20U;
constexpr int kMostGroups = 65536;

// Calls one of the reentrant lookups with a buffer that grows until the result fits.
template <typename Entry, typename LookUp, typename Use>
void lookUp(LookUp call, Use use) {
  for (std::vector<char> buffer(kFirstBuffer); buffer.size() <= kLargestBuffer;
       buffer.resize(buffer.size() * 4)) {
    Entry entry{};
    Entry* found = nullptr;
    const int failed = errnoOf([&] {
      errno = call(&entry, buffer.data(), buffer.size(), &found);
      return errno == 0 ? 0 : -1;
    });
    if (failed == ERANGE) continue;
    if (failed == 0 && found != nullptr) use(*found);
    return;
  }
}

std::optional<gid_t> groupNumber(const std::string& name) {
  std::optional<gid_t> result;
  lookUp<group>([&name](auto... rest) { return ::getgrnam_r(name.c_str(), rest...); },
                [&result](const group& found) { result = found.gr_gid; });
  return result;
}

std::vector<gid_t> groupsOf(const std::string& user, gid_t primary) {
  std::vector<gid_t> groups(64);
  for (;;) {
    int count = static_cast<int>(groups.size());
    if (::getgrouplist(user.c_str(), primary, groups.data(), &count) >= 0) {
      groups.resize(static_cast<std::size_t>(count));
      return groups;
    }
    const std::size_t wanted =
        std::max(groups.size() * 2, static_cast<std::size_t>(std::max(count, 0)));
    if (wanted > kMostGroups) return {primary};
    groups.resize(wanted);
  }
}

std::vector<gid_t> groupsOf(uid_t user) {
  std::vector<gid_t> result;
  lookUp<passwd>(
      [user](auto... rest) { return ::getpwuid_r(user, rest...); },
      [&result](const passwd& found) { result = groupsOf(found.pw_name, found.pw_gid); });
  return result;
}

}  // namespace

AccessPolicy::AccessPolicy(std::string adminGroup, std::string viewGroup)
    : adminGroup_(std::move(adminGroup)), viewGroup_(std::move(viewGroup)) {}

std::string AccessPolicy::refusal(uid_t user, Rights needed) const {
  std::string name = "USER";
  lookUp<passwd>([user](auto... rest) { return ::getpwuid_r(user, rest...); },
                 [&name](const passwd& found) { name = found.pw_name; });
  const bool viewingDoes = needed == Rights::viewing;
  return "user " + std::to_string(user) +
         " is not allowed to do this: you need to be in the group " + adminGroup_ +
         (viewingDoes ? " (changes) or " + viewGroup_ + " (looking)" : "") + ": usermod -aG " +
         (viewingDoes ? viewGroup_ : adminGroup_) + " " + name;
}

bool AccessPolicy::isOwner(uid_t user) { return user == 0 || user == ::geteuid(); }

Rights AccessPolicy::rightsOf(uid_t user) const {
  if (isOwner(user)) return Rights::everything;
  const std::vector<gid_t> groups = groupsOf(user);
  const auto isMember = [&groups](const std::string& name) {
    const auto number = groupNumber(name);
    return number && std::find(groups.begin(), groups.end(), *number) != groups.end();
  };
  if (isMember(adminGroup_)) return Rights::everything;
  if (isMember(viewGroup_)) return Rights::viewing;
  return Rights::nothing;
}

}  // namespace paddock
