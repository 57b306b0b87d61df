#include "platform/linux/accounts/linux_accounts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "platform/accounts.h"
#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/in_memory_directory.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

// Ids and names that no system has by itself.
constexpr std::uint32_t kLocalId = 2111222333;
const std::string kLocalName = "paddock-nobody-else";

class HostAndLocalAccounts : public ::testing::Test {
 protected:
  void addUser(const std::string& name, const std::string& id, const std::string& node = "/Local") {
    directory_.addRecord(node, schema::kUsers, name, {{schema::kUniqueID, id}});
  }
  void addGroup(const std::string& name, const std::string& id) {
    directory_.addRecord("/Local", schema::kGroups, name, {{schema::kPrimaryGroupID, id}});
  }
  int uidOf(const std::string& name) { return accounts_.getpwnam(name, id_); }
  int gidOf(const std::string& name) { return accounts_.getgrnam(name, id_); }

  InMemoryDirectory directory_{caseFold};
  LinuxAccounts accounts_{directory_};
  std::uint32_t id_ = 99;
  std::string name_ = "before";
};

TEST_F(HostAndLocalAccounts, SystemAccountsAreFoundByNameAndId) {
  EXPECT_EQ(uidOf("root"), 0);
  EXPECT_EQ(id_, 0U);
  EXPECT_EQ(gidOf("daemon"), 0);
  EXPECT_EQ(id_, 1U);
  EXPECT_EQ(accounts_.getpwuid(1, name_), 0);
  EXPECT_EQ(name_, "daemon");
  EXPECT_EQ(accounts_.getgrgid(0, name_), 0);
  EXPECT_EQ(name_, "root");
}

TEST_F(HostAndLocalAccounts, LocalRecordsAreFoundWhereSystemKnowsNone) {
  addUser(kLocalName, std::to_string(kLocalId));
  addGroup(kLocalName, std::to_string(kLocalId + 1));
  EXPECT_EQ(uidOf(kLocalName), 0);
  EXPECT_EQ(id_, kLocalId);
  EXPECT_EQ(gidOf(kLocalName), 0);
  EXPECT_EQ(id_, kLocalId + 1);
  EXPECT_EQ(accounts_.getpwuid(kLocalId, name_), 0);
  EXPECT_EQ(name_, kLocalName);
  EXPECT_EQ(accounts_.getgrgid(kLocalId + 1, name_), 0);
  EXPECT_EQ(name_, kLocalName);
}

TEST_F(HostAndLocalAccounts, TheSystemIsAskedBeforeLocal) {
  addUser("root", "4711");
  addUser("other", "0");
  EXPECT_EQ(uidOf("root"), 0);
  EXPECT_EQ(id_, 0U);
  EXPECT_EQ(accounts_.getpwuid(0, name_), 0);
  EXPECT_EQ(name_, "root");
}

TEST_F(HostAndLocalAccounts, RecordsOfOtherNodesAreNoAccounts) {
  directory_.addNode("/LDAP/example", "ReadOnly");
  addUser(kLocalName, "4711", "/LDAP/example");
  EXPECT_EQ(uidOf(kLocalName), ENOENT);
}

TEST_F(HostAndLocalAccounts, UnknownAccountIsNotFoundAndClearsResult) {
  EXPECT_EQ(uidOf(kLocalName), ENOENT);
  EXPECT_EQ(id_, 0U);
  id_ = 99;
  EXPECT_EQ(gidOf(kLocalName), ENOENT);
  EXPECT_EQ(id_, 0U);
  EXPECT_EQ(accounts_.getpwuid(kLocalId, name_), ENOENT);
  EXPECT_EQ(name_, "");
  name_ = "before";
  EXPECT_EQ(accounts_.getgrgid(kLocalId, name_), ENOENT);
  EXPECT_EQ(name_, "");
}

TEST_F(HostAndLocalAccounts, EmptyAndNulContainingNamesAreNotFound) {
  for (const std::string& name : {std::string(), std::string("root\0x", 6)}) {
    EXPECT_EQ(uidOf(name), ENOENT);
    EXPECT_EQ(gidOf(name), ENOENT);
  }
}

TEST_F(HostAndLocalAccounts, RecordWithoutUsableIdIsNoAccount) {
  directory_.addRecord("/Local", schema::kUsers, "none", {});
  addUser("text", "many");
  addUser("negative", "-2");
  addUser("undefined", "4294967295");
  for (const char* name : {"none", "text", "negative", "undefined"})
    EXPECT_EQ(uidOf(name), ENOENT) << name;
}

// Tests with a group file of their own: the process that runs them has mounts of its own.
class HostGroupFile : public HostAndLocalAccounts {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  }
  void withGroupFile(const std::string& contents, const std::function<void()>& body) {
    runInOwnMounts([&] {
      writeWholeFile(folder_.path("group"), contents);
      bindMount(folder_.path("group"), "/etc/group");
      body();
    });
  }
  int gidIn(std::size_t bufferSize, const std::string& name = kLocalName) {
    return accounts_.getgrnam_r(name, bufferSize, id_);
  }
  static std::string lineOf(const std::string& name, std::uint32_t gid,
                            const std::vector<std::string>& members) {
    std::string line = name + ":x:" + std::to_string(gid) + ":";
    for (std::size_t at = 0; at < members.size(); ++at) line += (at == 0 ? "" : ",") + members[at];
    return line + "\n";
  }

  TestFolder folder_;
};

TEST_F(HostGroupFile, LibraryNeedsExactlyReservedBuffer) {
  for (std::size_t letters = 1; letters <= 9; ++letters) {
    for (std::size_t count = 0; count <= 3; ++count) {
      const std::string name(letters, 'g');
      const std::vector<std::string> members(count, "member");
      const std::size_t needed = groupEntrySize(name, 4711, members);
      withGroupFile(lineOf(name, 4711, members), [&] {
        EXPECT_EQ(gidIn(needed, name), 0) << name << " " << count;
        EXPECT_EQ(id_, 4711U);
        EXPECT_EQ(gidIn(needed - 1, name), ERANGE) << name << " " << count;
        EXPECT_EQ(id_, 0U);
      });
    }
  }
}

TEST_F(HostGroupFile, OversizedHostGroupHidesLocalGroup) {
  addGroup(kLocalName, "250");
  withGroupFile(lineOf(kLocalName, 4711, std::vector<std::string>(30, "member")), [&] {
    EXPECT_EQ(gidIn(200), ERANGE);
    EXPECT_EQ(gidIn(4096), 0);
    EXPECT_EQ(id_, 4711U);
  });
}

TEST_F(HostGroupFile, LocalGroupIsFoundWhereHostKnowsNone) {
  addGroup(kLocalName, "250");
  withGroupFile("root:x:0:\n", [&] {
    EXPECT_EQ(gidIn(200), 0);
    EXPECT_EQ(id_, 250U);
  });
}

TEST_F(HostGroupFile, OverlongLineHidesLaterGroups) {
  addGroup(kLocalName, "250");
  const std::string large = lineOf("large", 20, std::vector<std::string>(30, "member"));
  withGroupFile("root:x:0:\n" + large + "daemon:x:1:\n", [&] {
    EXPECT_EQ(gidIn(200, "root"), 0);
    EXPECT_EQ(gidIn(200, "daemon"), ERANGE);
    EXPECT_EQ(gidIn(200), ERANGE) << "the host has not said that it knows no such group";
    EXPECT_EQ(gidIn(4096), 0);
  });
}

}  // namespace
}  // namespace paddock
