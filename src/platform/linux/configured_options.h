// The options of the Linux services as a configuration and a root set them: the same for the module
// and for every program that works beside it.
#pragma once

#include <memory>
#include <string>

#include "base/value.h"
#include "platform/linux/file_privileges.h"
#include "platform/linux/linux_directory.h"
#include "platform/linux/sid_resolver.h"

namespace paddock {

// `configuration` is the daemon's as a tree, whose keys were checked; what it does not set has its
// default. `root` is the folder that paths of the system are taken below, without a slash at its
// end; empty for the system itself.
LinuxDirectoryOptions configuredDirectory(const Dictionary& configuration, const std::string& root);
FilePrivilegesOptions configuredPrivileges(const Dictionary& configuration,
                                           const std::string& root);
// Null when no SID is to be asked of winbind.
std::unique_ptr<SidResolver> configuredSidResolver(const Dictionary& configuration,
                                                   const std::string& root);

}  // namespace paddock
