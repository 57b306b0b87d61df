// What accounts.h promises.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "directory_subject.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/testing/in_memory_accounts.h"

namespace paddock::contract {
namespace {

constexpr const char* kOwnGroup = "com.example.access";

// Accounts among which "root" and "daemon" are users and groups, 0 and 1, as on every Debian
// system.
class AccountsSubject {
 public:
  virtual ~AccountsSubject() = default;
  virtual Accounts& accounts() = 0;
  // A group that the host does not know.
  virtual void addOwnGroup(std::uint32_t gid, const std::vector<std::string>& members) = 0;
};

class InMemoryAccountsSubject final : public AccountsSubject {
 public:
  InMemoryAccountsSubject() {
    accounts_.addUser("daemon", 1);
    accounts_.addGroup("daemon", 1);
  }
  Accounts& accounts() override { return accounts_; }
  void addOwnGroup(std::uint32_t gid, const std::vector<std::string>& members) override {
    accounts_.addGroup(kOwnGroup, gid, members);
  }

 private:
  InMemoryAccounts accounts_;
};

class LinuxAccountsSubject final : public AccountsSubject {
 public:
  Accounts& accounts() override { return accounts_; }
  void addOwnGroup(std::uint32_t gid, const std::vector<std::string>& members) override {
    Array names;
    for (const std::string& member : members) names.emplace_back(member);
    const auto group =
        directory_.service().openLocal()->localNode()->newRecord(kOwnGroup, schema::kGroups);
    group->setAttribute(schema::kPrimaryGroupID, std::to_string(gid));
    if (!names.empty()) group->setAttribute(schema::kGroupMembership, names);
  }

 private:
  LinuxSubject directory_;
  LinuxAccounts accounts_{directory_.service()};
};

struct AccountsKind {
  const char* name;
  std::unique_ptr<AccountsSubject> (*make)();
};
const AccountsKind kKinds[] = {
    {"InMemory", [] { return std::unique_ptr<AccountsSubject>(new InMemoryAccountsSubject); }},
    {"Linux", [] { return std::unique_ptr<AccountsSubject>(new LinuxAccountsSubject); }},
};

class AccountsContract : public ::testing::TestWithParam<AccountsKind> {
 protected:
  static constexpr std::uint32_t kUnknownId = 3'999'999'998U;
  const std::string nobody_ = "no-such-account-of-a-test";

  std::unique_ptr<AccountsSubject> subject_ = GetParam().make();
  Accounts* accounts_ = &subject_->accounts();
  std::uint32_t id_ = 12345;
  std::string name_ = "before";
};
INSTANTIATE_TEST_SUITE_P(Accounts, AccountsContract, ::testing::ValuesIn(kKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(AccountsContract, FindsIdsByName) {
  EXPECT_EQ(accounts_->getpwnam("root", id_), 0);
  EXPECT_EQ(id_, 0U);
  EXPECT_EQ(accounts_->getpwnam("daemon", id_), 0);
  EXPECT_EQ(id_, 1U);
  EXPECT_EQ(accounts_->getgrnam("root", id_), 0);
  EXPECT_EQ(id_, 0U);
  EXPECT_EQ(accounts_->getgrnam("daemon", id_), 0);
  EXPECT_EQ(id_, 1U);
}

TEST_P(AccountsContract, FindsNamesById) {
  EXPECT_EQ(accounts_->getpwuid(0, name_), 0);
  EXPECT_EQ(name_, "root");
  EXPECT_EQ(accounts_->getpwuid(1, name_), 0);
  EXPECT_EQ(name_, "daemon");
  EXPECT_EQ(accounts_->getgrgid(0, name_), 0);
  EXPECT_EQ(name_, "root");
  EXPECT_EQ(accounts_->getgrgid(1, name_), 0);
  EXPECT_EQ(name_, "daemon");
}

TEST_P(AccountsContract, AnUnknownNameHasNoId) {
  EXPECT_EQ(accounts_->getpwnam(nobody_, id_), ENOENT);
  EXPECT_EQ(id_, 0U);
  id_ = 12345;
  EXPECT_EQ(accounts_->getgrnam(nobody_, id_), ENOENT);
  EXPECT_EQ(id_, 0U);
}

TEST_P(AccountsContract, AnUnknownIdHasNoName) {
  EXPECT_EQ(accounts_->getpwuid(kUnknownId, name_), ENOENT);
  EXPECT_EQ(name_, "");
  name_ = "before";
  EXPECT_EQ(accounts_->getgrgid(kUnknownId, name_), ENOENT);
  EXPECT_EQ(name_, "");
}

TEST_P(AccountsContract, NamesThatNoAccountCanHave) {
  for (const std::string& name :
       {std::string(), std::string("root\0", 5), std::string("root\0x", 6), std::string("\0", 1),
        std::string("a:b"), std::string("a\nb"), std::string(10'000, 'x')}) {
    id_ = 12345;
    EXPECT_NE(accounts_->getpwnam(name, id_), 0) << name;
    EXPECT_EQ(id_, 0U);
    id_ = 12345;
    EXPECT_NE(accounts_->getgrnam(name, id_), 0) << name;
    EXPECT_EQ(id_, 0U);
  }
  for (const std::string& name : {std::string(), std::string("root\0", 5)}) {
    EXPECT_EQ(accounts_->getpwnam(name, id_), ENOENT);
    EXPECT_EQ(accounts_->getgrnam(name, id_), ENOENT);
  }
}

TEST_P(AccountsContract, FindsGroupFittingBuffer) {
  EXPECT_EQ(accounts_->getgrnam_r("root", 4096, id_), 0);
  EXPECT_EQ(id_, 0U);
  EXPECT_EQ(accounts_->getgrnam_r("daemon", 4096, id_), 0);
  EXPECT_EQ(id_, 1U);
}

TEST_P(AccountsContract, AGroupThatWasJustMadeIsFound) {
  EXPECT_EQ(accounts_->getgrnam_r(kOwnGroup, 4096, id_), ENOENT);
  EXPECT_EQ(id_, 0U);
  subject_->addOwnGroup(250, {});
  EXPECT_EQ(accounts_->getgrnam_r(kOwnGroup, 4096, id_), 0);
  EXPECT_EQ(id_, 250U);
}

TEST_P(AccountsContract, GroupNeedsRoomForNameNumberAndMembers) {
  // com.example.access:x:250:member12,... and its line feed and NUL: 27 bytes and 9 for each but
  // the first; a pointer for each and two more.
  subject_->addOwnGroup(250, std::vector<std::string>(20, "member12"));
  constexpr std::size_t kNeeded = (27 + 20 * 9 - 1 + 7) / 8 * 8 + (20 + 2) * 8;
  EXPECT_EQ(accounts_->getgrnam_r(kOwnGroup, kNeeded, id_), 0);
  EXPECT_EQ(id_, 250U);
  EXPECT_EQ(accounts_->getgrnam_r(kOwnGroup, kNeeded - 1, id_), ERANGE);
  EXPECT_EQ(id_, 0U);
}

TEST_P(AccountsContract, NoGroupHasRoomInNothing) {
  EXPECT_EQ(accounts_->getgrnam_r("root", 0, id_), ERANGE);
  EXPECT_EQ(id_, 0U);
}

TEST_P(AccountsContract, ImpossibleGroupNamesAreNotFoundWithBuffer) {
  for (const std::string& name : {std::string(), std::string("root\0", 5), std::string("\0", 1)}) {
    id_ = 12345;
    EXPECT_EQ(accounts_->getgrnam_r(name, 4096, id_), ENOENT);
    EXPECT_EQ(id_, 0U);
  }
}

TEST_P(AccountsContract, ANumberIsNoName) {
  EXPECT_EQ(accounts_->getpwnam("0", id_), ENOENT);
  EXPECT_EQ(accounts_->getgrnam("0", id_), ENOENT);
}

}  // namespace
}  // namespace paddock::contract
