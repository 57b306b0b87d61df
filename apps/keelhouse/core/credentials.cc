#include "keelhouse/core/credentials.h"

#include "keelhouse/core/input.h"

namespace paddock::keelhouse {

std::optional<Credentials> readCredentials(const NodeAccount& account) {
  if (account.name.empty()) return std::nullopt;
  constexpr bool kConfirm = false;
  return Credentials{account.name, readPassword(account.passwordDescriptor,
                                                "Password of " + account.name, kConfirm)};
}

void setCredentials(Dictionary& request, const std::optional<Credentials>& credentials) {
  if (!credentials) return;
  request.set("adminUserName", credentials->user);
  request.set("adminPassword", credentials->password);
}

}  // namespace paddock::keelhouse
