#include "module/linux_services.h"

#include "paddock/host.h"
#include "platform/host/host_services.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/configured_options.h"
#include "platform/linux/directory/linux_metadata_stores.h"
#include "platform/linux/directory/linux_shared_file_list.h"
#include "platform/linux/dnssd/linux_net_services.h"
#include "platform/linux/files/linux_status_files.h"
#include "platform/linux/files/linux_text_files.h"
#include "platform/linux/files/linux_volume_info.h"
#include "platform/linux/privileges/linux_acl.h"
#include "platform/linux/process/linux_machine_information.h"
#include "platform/linux/quotas/accounting_quota_control.h"
#include "platform/linux/quotas/kernel_quota_control.h"
#include "platform/program_runner.h"
#include "platform/services.h"
#include "wire/property_list.h"

namespace paddock {

namespace {

constexpr const char* kMetadataStoresPath = "/var/lib/paddock/metadata-stores.sqlite";
constexpr const char* kQuotaRefresherPath = "/usr/sbin/quotascan";
constexpr const char* kQuotaAccountingPath = "/var/lib/paddock/quota-accounting";

// A key of [volumes]; null when it is not set.
const Value* volumesKey(const char* key) {
  const Dictionary* volumes = host().configuration().dictionary("volumes");
  return volumes != nullptr ? volumes->find(key) : nullptr;
}

bool quotasAreAccountedOnly() {
  const Value* backend = volumesKey("quota_backend");
  return backend != nullptr && *backend == Value("accounting");
}

VolumeFamilies volumeFamilies() {
  VolumeFamilies families;
  families.everyTypeIsUfs = quotasAreAccountedOnly();
  if (auto types = configuredTexts(host().configuration(), "volumes", "ufs_family")) {
    families.ufs = std::move(*types);
  }
  return families;
}

std::unique_ptr<QuotaControl> makeQuotaControl(VolumeInfo& volumes) {
  if (!quotasAreAccountedOnly()) return std::make_unique<KernelQuotaControl>(volumes);
  return std::make_unique<AccountingQuotaControl>(volumes, hostPath(kQuotaAccountingPath));
}

// What the configuration says of advertising; it is on when it says nothing.
bool isAdvertised() {
  const Dictionary* table = host().configuration().dictionary("dnssd");
  return table == nullptr || table->boolean("enabled").value_or(true);
}

std::unique_ptr<NetServices> makeNetServices(Logger& logger) {
  if (!isAdvertised()) return std::make_unique<SilentNetServices>();
  return std::make_unique<AvahiNetServices>(AvahiNetServicesOptions{.logger = &logger});
}

std::vector<std::string> indexingCommand() {
  return configuredTexts(host().configuration(), "indexing", "command")
      .value_or(std::vector<std::string>());
}

LinuxDirectoryOptions directoryOptions(Clock& clock, Logger& logger) {
  LinuxDirectoryOptions options = configuredDirectory(host().configuration(), host().root());
  options.extraUsers = configuredExtraUsers(host().configuration(), host().root(), clock, logger);
  options.observer = std::make_shared<HostNodeObserver>();
  return options;
}

std::optional<Dictionary> readStatusFile(std::string_view text) {
  std::string error;
  const auto value = wire::parsePropertyList(text, error);
  const Dictionary* dictionary = value ? value->dictionary() : nullptr;
  return dictionary != nullptr ? std::optional(*dictionary) : std::nullopt;
}

}  // namespace

struct InstalledServices::Parts {
  LinuxClock clock;
  HostLogger logger;
  LinuxDirectoryService directory{directoryOptions(clock, logger)};
  LinuxMembership membership{directory};
  FilePrivileges privileges{configuredPrivileges(host().configuration(), host().root()), directory,
                            membership,
                            configuredSidResolver(host().configuration(), host().root())};
  LinuxVolumeInfo volumeInfo{volumeFamilies()};
  std::unique_ptr<QuotaControl> quotaControl = makeQuotaControl(volumeInfo);
  LinuxBrowserInformation browserInformation;
  LinuxHostName hostName;
  LinuxUuidSource uuidSource;
  LinuxSharedFileLists sharedFileLists;
  LinuxTextFiles textFiles;
  HostProgramRunner programRunner;
  HostPluginCommands pluginCommands;
  std::unique_ptr<NetServices> netServices = makeNetServices(logger);
  LinuxPrivilegedObjects privilegedObjects{privileges.fileAcls()};
  LinuxStatusFiles statusFiles{host().root(), readStatusFile};
  LinuxMetadataStores metadataStores{
      {.path = hostPath(kMetadataStoresPath), .logger = &logger, .clock = &clock}};
  ServicesGuard guard{services()};

 private:
  Services services() {
    Services all;
    all.directory = &directory;
    all.membership = &membership;
    all.accounts = &privileges.accounts();
    all.acl = &privileges.acl();
    all.fileAttributes = &privileges.fileAttributes();
    all.volumeInfo = &volumeInfo;
    all.quotaControl = quotaControl.get();
    all.browserInformation = &browserInformation;
    all.hostName = &hostName;
    all.programRunner = &programRunner;
    all.pluginCommands = &pluginCommands;
    all.logger = &logger;
    all.clock = &clock;
    all.uuidSource = &uuidSource;
    all.sharedFileLists = &sharedFileLists;
    all.textFiles = &textFiles;
    all.metadataStores = &metadataStores;
    all.netServices = netServices.get();
    all.privilegedObjects = &privilegedObjects;
    all.statusFiles = &statusFiles;
    all.indexingCommand = indexingCommand();
    all.exportsPath = hostPath(all.exportsPath);
    const Value* checker = volumesKey("quota_checker");
    if (!quotasAreAccountedOnly()) all.quotaRefresherPath = kQuotaRefresherPath;
    if (checker != nullptr && checker->string()) all.quotaCheckerPath = *checker->string();
    return all;
  }
};

InstalledServices::InstalledServices() : parts_(std::make_unique<Parts>()) {}
InstalledServices::~InstalledServices() = default;

}  // namespace paddock
