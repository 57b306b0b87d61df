// What the privileges of folders are tested on: files, accounts, a directory and a membership
// service in memory.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/linux/case_fold.h"
#include "platform/services.h"
#include "platform/testing/faulty_services.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_directory.h"
#include "platform/testing/in_memory_file_attributes.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/recording_logger.h"

namespace paddock {

class PrivilegesFixture : public ::testing::Test {
 protected:
  PrivilegesFixture() {
    accounts.addUser("anna", 1000);
    accounts.addGroup("staff", 20);
    tree.setFolder(kFolder);
  }
  ~PrivilegesFixture() override {
    EXPECT_EQ(acl.unreleased(), 0U);
    EXPECT_EQ(directory.openSessions(), 0);
  }

  Services doubles() {
    Services all;
    all.directory = &directory;
    all.membership = &membership;
    all.logger = &logger;
    all.accounts = &accounts;
    all.fileAttributes = &fileAttributes;
    all.acl = &acl;
    return all;
  }

  // The result of `work` while the `nth` call named `call` fails with `error`.
  template <typename Work>
  auto failing(const std::string& call, const Work& work, std::size_t nth = 1, int error = EIO) {
    FaultPlan plan(nth);
    plan.countOnly(call);
    plan.setError(error);
    const FaultyServices faulty(doubles(), plan);
    const ServicesGuard guard(faulty.services());
    const auto result = work();
    EXPECT_TRUE(plan.fired()) << call << " was not called so often";
    return result;
  }

  static constexpr const char* kFolder = "/srv/folder";

  InMemoryDirectory directory{caseFold};
  InMemoryMembership membership;
  RecordingLogger logger;
  InMemoryAccounts accounts;
  InMemoryFileTree tree;
  InMemoryFileAttributes fileAttributes{tree, accounts};
  InMemoryAcl acl{tree};

 private:
  ServicesGuard guard_{doubles()};
};

}  // namespace paddock
