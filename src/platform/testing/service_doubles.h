// Every platform service as tests have it: its double, and the wrapper whose calls are asked of
// rules (call_rules.h). A service of the aggregate has one line in each of the two lists of
// `ServiceDoubles` and one in `ForwardingServices`.
#pragma once

#include <memory>
#include <vector>

#include "platform/services.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/fake_quotas.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/forwarding_acl.h"
#include "platform/testing/forwarding_directory.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_directory.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/in_memory_metadata_stores.h"
#include "platform/testing/in_memory_shared_file_list.h"
#include "platform/testing/in_memory_status_files.h"
#include "platform/testing/in_memory_text_files.h"
#include "platform/testing/recording_host_services.h"
#include "platform/testing/recording_net_services.h"

namespace paddock {

struct ServiceDoubles {
  // `fold` compares the values of the directory.
  explicit ServiceDoubles(CaseFold fold) : directory(fold) {}

  InMemoryDirectory directory;
  InMemoryMembership membership;
  FakeVolumeInfo volumes;
  FakeHostName hostName;
  RecordingProgramRunner programs;
  RecordingPluginCommands plugins;
  RecordingLogger logger;
  FakeClock clock;
  FakeUuidSource uuids;
  InMemorySharedFileLists sharedFiles;
  InMemoryTextFiles files;
  InMemoryAccounts accounts;
  // Shared folders; the exports file and other files of the module's own are in `files`.
  InMemoryFileTree tree;
  InMemoryFileAttributes fileAttributes{tree, accounts};
  InMemoryAcl acl{tree};
  InMemoryPrivilegedObjects privilegedObjects{tree, acl};
  InMemoryMetadataStores stores;
  InMemoryStatusFiles statusFiles;
  RecordingNetServices netServices;
  // Quota files and markers are real files: a test names a real folder.
  FakeQuotaControl quotaControl{volumes};
  FakeBrowserInformation browserInformation;

  // The doubles as the aggregate by which workers reach them.
  Services aggregate() {
    Services all;
    all.directory = &directory;
    all.membership = &membership;
    all.volumeInfo = &volumes;
    all.hostName = &hostName;
    all.programRunner = &programs;
    all.pluginCommands = &plugins;
    all.logger = &logger;
    all.clock = &clock;
    all.uuidSource = &uuids;
    all.sharedFileLists = &sharedFiles;
    all.textFiles = &files;
    all.accounts = &accounts;
    all.fileAttributes = &fileAttributes;
    all.acl = &acl;
    all.privilegedObjects = &privilegedObjects;
    all.statusFiles = &statusFiles;
    all.metadataStores = &stores;
    all.netServices = &netServices;
    all.quotaControl = &quotaControl;
    all.browserInformation = &browserInformation;
    return all;
  }
};

// Services each of whose calls is asked of the rules. The logger and the clock have no way to fail
// and are passed on as they are.
class ForwardingServices {
 public:
  // Wraps every service that `wrapped` has. The services and the rules outlive this object.
  ForwardingServices(const Services& wrapped, CallRules& rules) : rules_(rules), all_(wrapped) {
    wrap<ForwardingDirectory>(all_.directory);
    wrap<ForwardingMembership>(all_.membership);
    wrap<ForwardingVolumeInfo>(all_.volumeInfo);
    wrap<ForwardingHostName>(all_.hostName);
    wrap<ForwardingProgramRunner>(all_.programRunner);
    wrap<ForwardingPluginCommands>(all_.pluginCommands);
    wrap<ForwardingUuidSource>(all_.uuidSource);
    wrap<ForwardingSharedFileLists>(all_.sharedFileLists);
    wrap<ForwardingTextFiles>(all_.textFiles);
    wrap<ForwardingAccounts>(all_.accounts);
    wrap<ForwardingFileAttributes>(all_.fileAttributes);
    wrap<ForwardingAcl>(all_.acl);
    wrap<ForwardingQuotaControl>(all_.quotaControl);
    wrap<ForwardingBrowserInformation>(all_.browserInformation);
    wrap<ForwardingMetadataStores>(all_.metadataStores);
    wrap<ForwardingNetServices>(all_.netServices);
    wrap<ForwardingPrivilegedObjects>(all_.privilegedObjects);
    wrap<ForwardingStatusFiles>(all_.statusFiles);
  }
  ForwardingServices(const ForwardingServices&) = delete;
  ForwardingServices& operator=(const ForwardingServices&) = delete;

  const Services& services() const { return all_; }

 private:
  template <typename Wrapper, typename Service>
  void wrap(Service*& service) {
    if (service == nullptr) return;
    const auto wrapper = std::make_shared<Wrapper>(*service, rules_);
    wrappers_.push_back(wrapper);
    service = wrapper.get();
  }

  CallRules& rules_;
  std::vector<std::shared_ptr<void>> wrappers_;
  Services all_;
};

}  // namespace paddock
