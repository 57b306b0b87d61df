// The options of the Linux services as a configuration and a root set them: the same for the module
// and for every program that works beside it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/value.h"
#include "platform/clock.h"
#include "platform/linux/acl/samba_accounts.h"
#include "platform/linux/acl/sid_resolver.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/privileges/file_privileges.h"
#include "platform/logger.h"

namespace paddock {

// `configuration` is the daemon's as a tree, whose keys were checked; what it does not set has its
// default. `root` is the folder that paths of the system are taken below, without a slash at its
// end; empty for the system itself.
LinuxDirectoryOptions configuredDirectory(const Dictionary& configuration, const std::string& root);
// How the users and groups of "/Local" are given to the host ("[accounts] extrausers"); absent when
// they are not. Without the key they are, but not by a daemon with a root of its own. The caller
// keeps clock and logger alive.
std::optional<ExtraUsersOptions> configuredExtraUsers(const Dictionary& configuration,
                                                      const std::string& root, Clock& clock,
                                                      Logger& logger);
FilePrivilegesOptions configuredPrivileges(const Dictionary& configuration,
                                           const std::string& root);
// Winbind, where it may be asked, and Samba's own accounts: those that `samba` reads, which is made
// when it is null.
std::unique_ptr<SidResolver> configuredSidResolver(
    const Dictionary& configuration, const std::string& root,
    std::shared_ptr<SambaAccountReader> samba = nullptr);

}  // namespace paddock
