// What the privileges of folders are tested on: files, accounts, a directory and a membership
// service in memory.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "platform/directory_schema.h"
#include "platform/linux/process/case_fold.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "platform/testing/faulty_services.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_directory.h"
#include "platform/testing/in_memory_file_attributes.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/in_memory_privileged_objects.h"
#include "platform/testing/in_memory_status_files.h"
#include "platform/testing/recording_logger.h"
#include "platform/testing/recording_program_runner.h"

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
    all.privilegedObjects = &privilegedObjects;
    all.statusFiles = &statusFiles;
    all.programRunner = &programs;
    return all;
  }

  static acl::Entry entryOf(int tag, const std::optional<Guid>& guid, acl::Permission permissions,
                            acl::Flag flags = 0) {
    acl::Entry entry;
    entry.tag = tag;
    entry.qualifier = guid;
    entry.permset.permissions = permissions;
    entry.flagset.flags = flags;
    return entry;
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

  using Lines = std::vector<RecordingLogger::Line>;
  // What was logged as an error, without the debug tracing.
  Lines errorLines() const {
    Lines lines = logger.lines();
    std::erase_if(lines, [](const auto& line) { return line.priority == kLogDebug; });
    return lines;
  }
  // The error lines are these texts, all in the name of the function; they are forgotten then.
  void expectErrors(const std::string& function, const std::vector<std::string>& texts) {
    Lines expected;
    for (const std::string& text : texts)
      expected.push_back({kLogError, "paddock_sharing:" + function + " " + text});
    EXPECT_EQ(errorLines(), expected);
    logger.clear();
  }

  // A user or group of the local node with a GUID of its own, which the membership service does not
  // know.
  void addPrincipal(const std::string& type, const std::string& name, const Guid& guid,
                    const std::optional<std::string>& realName = std::nullopt) {
    Dictionary attributes{{schema::kGeneratedUID, guidText(guid)}};
    if (realName) attributes.set(schema::kRealName, *realName);
    directory.addRecord("/Local", type, name, attributes);
  }
  static Guid guidNumber(std::uint8_t number) {
    Guid guid{{0xDE, 0xAD, 0xBE, 0xEF}};
    guid.bytes[15] = number;
    return guid;
  }

  static constexpr const char* kFolder = "/srv/folder";

  InMemoryDirectory directory{caseFold};
  InMemoryMembership membership;
  RecordingLogger logger;
  InMemoryAccounts accounts;
  InMemoryFileTree tree;
  InMemoryFileAttributes fileAttributes{tree, accounts};
  InMemoryAcl acl{tree};
  InMemoryPrivilegedObjects privilegedObjects{tree, acl};
  InMemoryStatusFiles statusFiles;
  RecordingProgramRunner programs;

 private:
  ServicesGuard guard_{doubles()};
};

}  // namespace paddock
