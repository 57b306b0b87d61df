// The options of the Linux services from a configuration and a root: the same for the module and
// for its companion programs.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/value.h"
#include "platform/linux/acl/samba_accounts.h"
#include "platform/linux/acl/sid_resolver.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/privileges/file_privileges.h"
#include "platform/logger.h"
#include "platform/machine_information.h"

namespace paddock {

// `configuration` is the daemon's as a tree, with validated keys; unset keys have their defaults.
// `root` is the folder that paths of the system are resolved below, without a trailing slash; empty
// for the system itself.
LinuxDirectoryOptions configuredDirectory(const Dictionary& configuration, const std::string& root);
// How the users and groups of "/Local" are exported to the host ("[accounts] extrausers"); nullopt
// when they are not. Without the key they are, but not by a daemon with a root of its own. Clock
// and logger must outlive the result.
std::optional<ExtraUsersOptions> configuredExtraUsers(const Dictionary& configuration,
                                                      const std::string& root, Clock& clock,
                                                      Logger& logger);
FilePrivilegesOptions configuredPrivileges(const Dictionary& configuration,
                                           const std::string& root);
// Winbind, where it may be queried, and Samba's own accounts: those that `samba` reads, which is
// created when it is null.
std::unique_ptr<SidResolver> configuredSidResolver(
    const Dictionary& configuration, const std::string& root,
    std::shared_ptr<SambaAccountReader> samba = nullptr);

}  // namespace paddock
