// The users and groups of the local directory, as far as they can be accounts of a host.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/database/local_store.h"

namespace paddock {

// Texts are as the records have them. An attribute that a record does not have is absent; of one
// with several values the first is meant, but of names and members all are.
struct UserRecord {
  std::vector<std::string> names;  // at least one
  std::optional<std::string> id;
  std::optional<std::string> group;
  std::optional<std::string> realName;
  std::optional<std::string> home;
  std::optional<std::string> shell;
  std::optional<std::string> passwordHash;  // see crypt(5)
};

struct GroupRecord {
  std::vector<std::string> names;  // at least one
  std::optional<std::string> id;
  std::vector<std::string> members;
};

// Each in the order in which the records were created.
struct AccountRecords {
  std::vector<UserRecord> users;
  std::vector<GroupRecord> groups;
};

// Throws DirectoryError.
AccountRecords readAccountRecords(LocalStore& store);

}  // namespace paddock
