#include "platform/linux/acl/winbind_sids.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>

#include "platform/linux/acl/sid_resolver.h"
#include "platform/linux/process/linux_machine_information.h"

extern "C" {  // the header does not say it itself
#include <wbclient.h>
}

namespace paddock {

namespace {

constexpr std::chrono::seconds kPatience{2};
// A list may name a thousand that winbind has to ask far away for.
constexpr BoundedSidResolver::Allowance kAllowance{std::chrono::seconds(10),
                                                   std::chrono::minutes(1)};
constexpr std::chrono::seconds kLifetime{60};

struct FreeContext {
  void operator()(wbcContext* context) const { wbcCtxFree(context); }
};
using Context = std::unique_ptr<wbcContext, FreeContext>;

struct FreeMemory {
  void operator()(char* text) const { wbcFreeMemory(text); }
};
using Text = std::unique_ptr<char, FreeMemory>;

std::optional<wbcDomainSid> winbindSid(const nt_acl::Sid& sid) {
  wbcDomainSid made{};
  if (sid.subAuthorities.size() > std::size(made.sub_auths)) return std::nullopt;
  made.sid_rev_num = 1;
  made.num_auths = static_cast<std::uint8_t>(sid.subAuthorities.size());
  for (std::size_t at = 0; at < std::size(made.id_auth); ++at)
    made.id_auth[at] = static_cast<std::uint8_t>(sid.authority >> (40 - 8 * at));
  std::copy(sid.subAuthorities.begin(), sid.subAuthorities.end(), made.sub_auths);
  return made;
}

int errnoOf(wbcErr error) {
  switch (error) {
    case WBC_ERR_SUCCESS:
      return 0;
    case WBC_ERR_NO_MEMORY:
      return ENOMEM;
    case WBC_ERR_WINBIND_NOT_AVAILABLE:
      return ECONNREFUSED;
    case WBC_ERR_INVALID_SID:
    case WBC_ERR_DOMAIN_NOT_FOUND:
      return ENOENT;
    default:
      return EIO;
  }
}

// What a SID is that maps to a user and a group of one number.
int typeByName(wbcContext* context, const wbcDomainSid& sid, PrincipalType& type) {
  char* domain = nullptr;
  char* name = nullptr;
  wbcSidType kind = WBC_SID_NAME_USE_NONE;
  const wbcErr error = wbcCtxLookupSid(context, &sid, &domain, &name, &kind);
  const Text freeDomain(domain);
  const Text freeName(name);
  const bool user = kind == WBC_SID_NAME_USER || kind == WBC_SID_NAME_COMPUTER;
  type = user ? PrincipalType::user : PrincipalType::group;
  return errnoOf(error);
}

}  // namespace

int WinbindSids::principalOf(const nt_acl::Sid& sid, Principal& principal) {
  const auto asked = winbindSid(sid);
  if (!asked) return ENOENT;
  const Context context(wbcCtxCreate());
  if (!context) return ENOMEM;
  wbcUnixId answer{};
  const wbcErr error = wbcCtxSidsToUnixIds(context.get(), &*asked, 1, &answer);
  if (error != WBC_ERR_SUCCESS) return errnoOf(error);
  switch (answer.type) {
    case WBC_ID_TYPE_UID:
      principal = {PrincipalType::user, answer.id.uid};
      return 0;
    case WBC_ID_TYPE_GID:
      principal = {PrincipalType::group, answer.id.gid};
      return 0;
    case WBC_ID_TYPE_BOTH:
      principal.id = answer.id.gid;
      return typeByName(context.get(), *asked, principal.type);
    default:
      return ENOENT;
  }
}

std::unique_ptr<SidResolver> makeWinbindResolver() {
  return std::make_unique<CachedSidResolver>(
      std::make_unique<BoundedSidResolver>(std::make_shared<WinbindSids>(), kPatience, kAllowance),
      std::make_shared<LinuxClock>(), kLifetime);
}

}  // namespace paddock
