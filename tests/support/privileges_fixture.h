// What the privileges of folders are tested on: files, accounts, a directory and a membership
// service in memory.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_acl.h"
#include "platform/testing/in_memory_directory.h"
#include "platform/testing/in_memory_file_tree.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/in_memory_status_files.h"
#include "platform/testing/recording_host_services.h"
#include "support/acl_fixture.h"

namespace paddock {

class PrivilegesFixture : public AclFixture {
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

  // The result of `work` while the `nth` call named `call` fails with `error`.
  template <typename Work>
  auto failing(const std::string& call, const Work& work, std::size_t nth = 1, int error = EIO) {
    return whileFailing(doubles(), call, nth, error, work);
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
  Guid guidOfUser(std::uint32_t uid) {
    Guid guid;
    EXPECT_EQ(membership.uidToGuid(uid, guid), 0);
    return guid;
  }
  Guid guidOfGroup(std::uint32_t gid) {
    Guid guid;
    EXPECT_EQ(membership.gidToGuid(gid, guid), 0);
    return guid;
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
