#include "platform/testing/faulty_services.h"

#include <optional>
#include <utility>

#include "platform/testing/faulty_acl.h"
#include "platform/testing/faulty_directory.h"
#include "platform/testing/faulty_metadata_stores.h"
#include "platform/testing/faulty_net_services.h"
#include "platform/testing/faulty_platform.h"
#include "platform/testing/faulty_shared_file_list.h"

namespace paddock {

struct FaultyServices::Wrappers {
  std::optional<FaultyDirectory> directory;
  std::optional<FaultyMembership> membership;
  std::optional<FaultyVolumeInfo> volumeInfo;
  std::optional<FaultyHostName> hostName;
  std::optional<FaultyProgramRunner> programRunner;
  std::optional<FaultyPluginCommands> pluginCommands;
  std::optional<FaultySharedFileLists> sharedFileLists;
  std::optional<FaultyTextFiles> textFiles;
  std::optional<FaultyAccounts> accounts;
  std::optional<FaultyFileAttributes> fileAttributes;
  std::optional<FaultyAcl> acl;
  std::optional<FaultyQuotaControl> quotaControl;
  std::optional<FaultyBrowserInformation> browserInformation;
  std::optional<FaultyMetadataStores> metadataStores;
  std::optional<FaultyNetServices> netServices;
  std::optional<FaultyPrivilegedObjects> privilegedObjects;
  std::optional<FaultyStatusFiles> statusFiles;
};

namespace {

template <typename Service, typename Wrapper>
void wrap(Service*& service, std::optional<Wrapper>& wrapper, FaultPlan& plan) {
  if (service != nullptr) service = &wrapper.emplace(*service, plan);
}

}  // namespace

FaultyServices::FaultyServices(Services wrapped, FaultPlan& plan)
    : wrappers_(std::make_unique<Wrappers>()), services_(std::move(wrapped)) {
  wrap(services_.directory, wrappers_->directory, plan);
  wrap(services_.membership, wrappers_->membership, plan);
  wrap(services_.volumeInfo, wrappers_->volumeInfo, plan);
  wrap(services_.hostName, wrappers_->hostName, plan);
  wrap(services_.programRunner, wrappers_->programRunner, plan);
  wrap(services_.pluginCommands, wrappers_->pluginCommands, plan);
  wrap(services_.sharedFileLists, wrappers_->sharedFileLists, plan);
  wrap(services_.textFiles, wrappers_->textFiles, plan);
  wrap(services_.accounts, wrappers_->accounts, plan);
  wrap(services_.fileAttributes, wrappers_->fileAttributes, plan);
  wrap(services_.acl, wrappers_->acl, plan);
  wrap(services_.quotaControl, wrappers_->quotaControl, plan);
  wrap(services_.browserInformation, wrappers_->browserInformation, plan);
  wrap(services_.metadataStores, wrappers_->metadataStores, plan);
  wrap(services_.netServices, wrappers_->netServices, plan);
  wrap(services_.privilegedObjects, wrappers_->privilegedObjects, plan);
  wrap(services_.statusFiles, wrappers_->statusFiles, plan);
}

FaultyServices::~FaultyServices() = default;

}  // namespace paddock
