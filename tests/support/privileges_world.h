// The services that lists and privileges of real files need, with a directory of their own.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/privileges/file_privileges.h"
#include "platform/logger.h"
#include "platform/services.h"

namespace paddock {

class SilentLogger final : public Logger {
 public:
  void log(int, std::string_view) override {}
};

struct PrivilegesWorld {
  // The databases are in `folder`; the directory has its own nodes, and these.
  explicit PrivilegesWorld(const std::string& folder, std::vector<LdapOptions> ldap = {})
      : directory({.databasePath = folder + "/directory.sqlite",
                   .ldap = std::move(ldap),
                   .pam = std::nullopt}),
        privileges({.databasePath = folder + "/directory.sqlite",
                    .rememberedSidsPath = folder + "/foreign-sids.sqlite"},
                   directory, membership, nullptr) {
    services.directory = &directory;
    services.membership = &membership;
    services.accounts = &privileges.accounts();
    services.fileAttributes = &privileges.fileAttributes();
    services.acl = &privileges.acl();
    services.logger = &logger;
  }

  LinuxDirectoryService directory;
  LinuxMembership membership{directory};
  FilePrivileges privileges;
  SilentLogger logger;
  Services services;
};

}  // namespace paddock
