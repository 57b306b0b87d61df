#include "platform/testing/service_doubles.h"

#include <gtest/gtest.h>

#include "platform/machine_information.h"
#include "platform/program_runner.h"
#include "platform/shared_file_list.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/fake_quotas.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_shared_file_list.h"
#include "platform/testing/in_memory_text_files.h"
#include "platform/testing/recording_host_services.h"
#include "platform/text_file.h"
#include "platform/volume_info.h"

namespace paddock {
namespace {

class FaultyServiceCalls : public testing::Test {
 protected:
  FaultyServiceCalls() {
    real_.hostName = &hostName_;
    real_.volumeInfo = &volumeInfo_;
    real_.programRunner = &programRunner_;
    real_.sharedFileLists = &sharedFileLists_;
    real_.textFiles = &textFiles_;
    real_.quotaControl = &quotaControl_;
    real_.browserInformation = &browserInformation_;
    real_.accounts = &accounts_;
    real_.fileAttributes = &fileAttributes_;
    real_.acl = &acl_;
  }

  FakeHostName hostName_;
  FakeVolumeInfo volumeInfo_;
  RecordingProgramRunner programRunner_;
  InMemorySharedFileLists sharedFileLists_;
  InMemoryTextFiles textFiles_;
  FakeQuotaControl quotaControl_{volumeInfo_};
  FakeBrowserInformation browserInformation_;
  InMemoryAccounts accounts_;
  InMemoryFileTree tree_;
  InMemoryFileAttributes fileAttributes_{tree_, accounts_};
  InMemoryAcl acl_{tree_};
  Services real_;
};

TEST_F(FaultyServiceCalls, FailsTheNthCallCountedOverAllServices) {
  FaultPlan plan(2);
  const ForwardingServices faulty(real_, plan);
  std::string name;
  MountedVolume volume;
  EXPECT_EQ(faulty.services().hostName->gethostname(name), 0);
  EXPECT_FALSE(plan.fired());
  EXPECT_EQ(faulty.services().volumeInfo->statfs("/", volume), EIO);
  EXPECT_EQ(volume, MountedVolume());
  EXPECT_TRUE(plan.fired());
  EXPECT_EQ(plan.failedCall(), "volumeInfo.statfs");
  EXPECT_EQ(faulty.services().volumeInfo->statfs("/", volume), 0);
  EXPECT_EQ(plan.calls(), (std::vector<std::string>{"hostName.gethostname", "volumeInfo.statfs",
                                                    "volumeInfo.statfs"}));
}

TEST_F(FaultyServiceCalls, NothingFailsWithoutAFailingCall) {
  FaultPlan plan;
  const ForwardingServices faulty(real_, plan);
  std::string name;
  EXPECT_EQ(faulty.services().hostName->gethostname(name), 0);
  EXPECT_EQ(name, "server.example");
  EXPECT_FALSE(plan.fired());
  EXPECT_EQ(plan.callCount(), 1U);
}

TEST_F(FaultyServiceCalls, AFailingProgramDoesNotRun) {
  FaultPlan plan(1);
  plan.setError(ENOENT);
  const ForwardingServices faulty(real_, plan);
  EXPECT_EQ(faulty.services().programRunner->run("/bin/x", {}).status, ENOENT);
  EXPECT_TRUE(programRunner_.runs().empty());
}

TEST_F(FaultyServiceCalls, ProgramFailingToStartDoesNotRun) {
  FaultPlan plan(1);
  plan.setError(EAGAIN);
  const ForwardingServices faulty(real_, plan);
  EXPECT_EQ(faulty.services().programRunner->start("/bin/x", {"-u"}), EAGAIN);
  EXPECT_EQ(plan.failedCall(), "programRunner.start");
  EXPECT_TRUE(programRunner_.started().empty());
}

TEST_F(FaultyServiceCalls, AFailingSwitchSwitchesNothing) {
  FaultPlan plan(1);
  plan.setError(EPERM);
  const ForwardingServices faulty(real_, plan);
  quotaControl_.setOn("/");
  EXPECT_EQ(faulty.services().quotaControl->quotactl("/", quotaCommand(kQuotaOffCommand, 0), 0,
                                                     std::string("/.quota.user")),
            EPERM);
  EXPECT_TRUE(quotaControl_.isOn("/"));
}

TEST_F(FaultyServiceCalls, AFailingQueryLeavesTheStateZero) {
  FaultPlan plan(1);
  const ForwardingServices faulty(real_, plan);
  std::uint32_t state = 7;
  EXPECT_EQ(
      faulty.services().quotaControl->quotactl("/", quotaCommand(kQuotaStateCommand, 0), 0, &state),
      EIO);
  EXPECT_EQ(state, 0U);
}

TEST_F(FaultyServiceCalls, FailingBrowserInformationIsZeroAndNotWritten) {
  FaultPlan plan(1);
  plan.keepFailing();
  const ForwardingServices faulty(real_, plan);
  BrowserInformation information{1};
  EXPECT_EQ(faulty.services().browserInformation->read("/", information), EIO);
  EXPECT_EQ(information, BrowserInformation{});
  EXPECT_EQ(faulty.services().browserInformation->write("/", information), EIO);
  EXPECT_EQ(browserInformation_.find("/"), nullptr);
}

TEST_F(FaultyServiceCalls, FailingStatisticsAreEmpty) {
  FaultPlan plan(1);
  const ForwardingServices faulty(real_, plan);
  VolumeStatistics statistics{"x", 1, 2, 3};
  EXPECT_EQ(faulty.services().volumeInfo->statistics("/", statistics), EIO);
  EXPECT_EQ(statistics, VolumeStatistics());
}

TEST_F(FaultyServiceCalls, AFailingReplacementChangesNothing) {
  textFiles_.setFile("/etc/exports", "old\n");
  FaultPlan plan(1);
  plan.setError(ENOSPC);
  const ForwardingServices faulty(real_, plan);
  EXPECT_EQ(faulty.services().textFiles->replace("/etc/exports", "new\n"), ENOSPC);
  EXPECT_EQ(textFiles_.contents("/etc/exports"), "old\n");
}

TEST_F(FaultyServiceCalls, AFailingRemovalRemovesNothing) {
  textFiles_.setFile("/etc/exports", "old\n");
  FaultPlan plan(1);
  plan.setError(EROFS);
  const ForwardingServices faulty(real_, plan);
  EXPECT_EQ(faulty.services().textFiles->removeFile("/etc", "exports"), EROFS);
  EXPECT_EQ(textFiles_.contents("/etc/exports"), "old\n");
  EXPECT_EQ(faulty.services().textFiles->removeFile("/etc", "exports"), 0);
}

TEST_F(FaultyServiceCalls, FailedGroupLookupClearsItsNumber) {
  FaultPlan plan(1);
  plan.setError(ERANGE);
  const ForwardingServices faulty(real_, plan);
  std::uint32_t gid = 7;
  EXPECT_EQ(faulty.services().accounts->getgrnam_r("root", 200, gid), ERANGE);
  EXPECT_EQ(gid, 0U);
  EXPECT_EQ(plan.failedCall(), "accounts.getgrnam_r");
}

TEST_F(FaultyServiceCalls, WrappedItemsCanBeRemovedFromTheList) {
  sharedFileLists_.insert("file:///srv/a");
  FaultPlan plan;
  const ForwardingServices faulty(real_, plan);
  const auto list = faulty.services().sharedFileLists->createSharePointList();
  EXPECT_EQ(list->remove(list->snapshot().at(0)), kSuccess);
  EXPECT_EQ(list->remove(list->insertLast("file:///srv/b")), kSuccess);
  EXPECT_TRUE(sharedFileLists_.urls().empty());
}

TEST_F(FaultyServiceCalls, SharedFileListCallsFailIndividually) {
  sharedFileLists_.insert("file:///srv/a");
  FaultPlan plan(1);
  plan.keepFailing();
  plan.countOnly("sharedFileList.");
  const ForwardingServices faulty(real_, plan);
  const auto list = faulty.services().sharedFileLists->createSharePointList();
  ASSERT_NE(list, nullptr);
  EXPECT_TRUE(list->snapshot().empty());
  EXPECT_EQ(list->insertLast("file:///srv/b"), nullptr);
  EXPECT_EQ(list->remove(nullptr), EIO);
  EXPECT_EQ(plan.callCount(), 3U);
}

TEST_F(FaultyServiceCalls, AFailingChangeOfAttributesChangesNothing) {
  tree_.setFolder("/srv/a");
  FaultPlan plan(1);
  plan.setError(EROFS);
  const ForwardingServices faulty(real_, plan);
  EXPECT_EQ(faulty.services().fileAttributes->apply("/srv/a", {{}, {}, 0700}), EROFS);
  EXPECT_EQ(tree_.attributes("/srv/a").permissions, 0755U);
}

TEST_F(FaultyServiceCalls, AclIsFreedDespiteFailedRelease) {
  FaultPlan plan(2);
  plan.countOnly("acl.acl_free");
  plan.setError(ENOMEM);
  const ForwardingServices faulty(real_, plan);
  acl::AclService& service = *faulty.services().acl;
  EXPECT_EQ(service.acl_free(service.acl_init(1)), 0);
  errno = 0;
  EXPECT_EQ(service.acl_free(service.acl_init(1)), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(acl_.unreleased(), 0U);
}

TEST_F(FaultyServiceCalls, AclCallsFailIndividually) {
  acl::List* list = acl_.acl_init(1);
  acl::Entry* entry = nullptr;
  ASSERT_EQ(acl_.acl_create_entry(list, entry), 0);
  ASSERT_EQ(acl_.acl_set_tag_type(entry, acl::kExtendedAllow), 0);
  FaultPlan plan(1);
  plan.countOnly("acl.acl_get_permset");
  const ForwardingServices faulty(real_, plan);
  acl::AclService& service = *faulty.services().acl;
  int tag = 0;
  acl::Permset* permset = nullptr;
  EXPECT_EQ(service.acl_get_tag_type(entry, tag), 0);
  EXPECT_EQ(tag, acl::kExtendedAllow);
  EXPECT_EQ(service.acl_get_permset(entry, permset), -1);
  EXPECT_EQ(permset, nullptr);
  EXPECT_EQ(service.acl_get_permset(entry, permset), 0);
  EXPECT_EQ(acl_.acl_free(list), 0);
}

}  // namespace
}  // namespace paddock
