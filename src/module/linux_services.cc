#include "module/linux_services.h"

#include "paddock/host.h"
#include "platform/host/host_services.h"
#include "platform/linux/linux_accounts.h"
#include "platform/linux/linux_clock.h"
#include "platform/linux/linux_directory.h"
#include "platform/linux/linux_file_attributes.h"
#include "platform/linux/linux_host_name.h"
#include "platform/linux/linux_membership.h"
#include "platform/linux/linux_shared_file_list.h"
#include "platform/linux/linux_text_files.h"
#include "platform/linux/linux_uuid_source.h"
#include "platform/linux/linux_volume_info.h"
#include "platform/services.h"

namespace paddock {

namespace {

LinuxDirectoryOptions directoryOptions() {
  LinuxDirectoryOptions options;
  options.databasePath = hostPath(options.databasePath);
  // A tree of its own brings its own PAM service; the system's is where the system keeps it.
  if (!host().root().empty()) options.pam->configurationFolder = hostPath("/etc/pam.d");
  const Dictionary* access = host().configuration().dictionary("access");
  const std::string* adminGroup = access != nullptr ? access->string("admin_group") : nullptr;
  if (adminGroup != nullptr) options.adminGroup = *adminGroup;
  return options;
}

}  // namespace

struct InstalledServices::Parts {
  LinuxDirectoryService directory{directoryOptions()};
  LinuxMembership membership{directory};
  LinuxAccounts accounts{directory};
  LinuxFileAttributes fileAttributes{accounts};
  LinuxVolumeInfo volumeInfo;
  LinuxHostName hostName;
  LinuxClock clock;
  LinuxUuidSource uuidSource;
  LinuxSharedFileLists sharedFileLists;
  LinuxTextFiles textFiles;
  HostProgramRunner programRunner;
  HostPluginCommands pluginCommands;
  HostLogger logger;
  ServicesGuard guard{services()};

 private:
  Services services() {
    Services all;
    all.directory = &directory;
    all.membership = &membership;
    all.accounts = &accounts;
    all.fileAttributes = &fileAttributes;
    all.volumeInfo = &volumeInfo;
    all.hostName = &hostName;
    all.programRunner = &programRunner;
    all.pluginCommands = &pluginCommands;
    all.logger = &logger;
    all.clock = &clock;
    all.uuidSource = &uuidSource;
    all.sharedFileLists = &sharedFileLists;
    all.textFiles = &textFiles;
    all.exportsPath = hostPath(all.exportsPath);
    return all;
  }
};

InstalledServices::InstalledServices() : parts_(std::make_unique<Parts>()) {}
InstalledServices::~InstalledServices() = default;

}  // namespace paddock
