#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/linux/acl/samba_accounts.h"
#include "platform/linux/acl/sid_forms.h"

// What Samba's programs print of accounts and groups; each SID in it reads as it is written.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace nt_acl = paddock::nt_acl;
  const std::string text(data, data + size);
  const auto require = [](const nt_acl::Sid& sid) {
    if (nt_acl::parseSid(nt_acl::sidText(sid)) != sid) std::abort();
  };
  if (const auto sid = nt_acl::parseSid(text)) require(*sid);
  for (const paddock::SambaAccount& account : paddock::parseSambaUsers(text)) {
    require(account.sid);
    if (account.primaryGroup) require(*account.primaryGroup);
  }
  for (const paddock::SambaGroup& group : paddock::parseSambaGroups(text)) require(group.sid);
  paddock::sambaParameter(text, "private dir");
  return 0;
}
