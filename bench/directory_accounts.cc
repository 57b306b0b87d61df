// Makes a directory of users and groups in "/Local".
//
//   bench_accounts DATABASE USERS GROUPS MEMBERSHIPS
//
// The users user0 ... have the uids from 100,000 on, and are spread over the groups group0 ...,
// gids from 200,000 on, each in one. The user "many", uid 99,999, is in as many further groups,
// gids from 300,000 on.
#include <iostream>
#include <stdexcept>
#include <string>

#include "base/text.h"
#include "platform/directory.h"
#include "platform/linux/directory/linux_directory.h"

namespace {

namespace schema = paddock::schema;

constexpr long long kFirstUid = 100'000;
constexpr long long kFirstGid = 200'000;
constexpr long long kFirstOfMany = 300'000;

class Accounts {
 public:
  explicit Accounts(const std::string& database)
      : directory_({.databasePath = database, .pam = std::nullopt}),
        node_(directory_.openLocal()->localNode()) {}

  void addUser(const std::string& name, long long uid) {
    node_->newRecord(name, schema::kUsers)
        ->setAttributesAndValues({{schema::kUniqueID, std::to_string(uid)}});
  }
  void addGroup(const std::string& name, long long gid, const paddock::Array& members) {
    node_->newRecord(name, schema::kGroups)
        ->setAttributesAndValues(
            {{schema::kPrimaryGroupID, std::to_string(gid)}, {schema::kGroupMembership, members}});
  }

 private:
  paddock::LinuxDirectoryService directory_;
  std::shared_ptr<paddock::DirectoryNode> node_;
};

void fill(Accounts& accounts, long long users, long long groups, long long memberships) {
  for (long long user = 0; user < users; ++user)
    accounts.addUser("user" + std::to_string(user), kFirstUid + user);
  for (long long group = 0; group < groups; ++group) {
    paddock::Array members;
    for (long long user = group; user < users; user += groups)
      members.emplace_back("user" + std::to_string(user));
    accounts.addGroup("group" + std::to_string(group), kFirstGid + group, members);
  }
  accounts.addUser("many", kFirstUid - 1);
  for (long long group = 0; group < memberships; ++group)
    accounts.addGroup("many" + std::to_string(group), kFirstOfMany + group, {"many"});
}

long long countIn(const char* text) {
  const auto count = paddock::parseInteger(text);
  if (!count || *count <= 0 || *count > 100'000) throw std::runtime_error("that is no count");
  return *count;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 5) {
    std::cerr << "usage: bench_accounts DATABASE USERS GROUPS MEMBERSHIPS\n";
    return 2;
  }
  try {
    Accounts accounts(arguments[1]);
    fill(accounts, countIn(arguments[2]), countIn(arguments[3]), countIn(arguments[4]));
  } catch (const std::exception& error) {
    std::cerr << "bench_accounts: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
