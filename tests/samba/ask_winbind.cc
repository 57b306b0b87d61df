// Asks winbind for each SID on the command line, and prints "SID user ID", "SID group ID" or
// "SID error NUMBER".
#include <cstdio>

#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/acl/winbind_sids.h"

int main(int count, char** arguments) {
  const auto resolver = paddock::makeWinbindResolver();
  for (int at = 1; at < count; ++at) {
    const auto sid = paddock::nt_acl::parseSid(arguments[at]);
    if (!sid) {
      std::fprintf(stderr, "ask_winbind: \"%s\" is no SID\n", arguments[at]);
      return 2;
    }
    paddock::Principal principal;
    const int error = resolver->principalOf(*sid, principal);
    const bool user = principal.type == paddock::PrincipalType::user;
    if (error == 0)
      std::printf("%s %s %u\n", arguments[at], user ? "user" : "group", principal.id);
    else
      std::printf("%s error %d\n", arguments[at], error);
  }
  return 0;
}
