// Everybody who may read, write or change the permissions of an object.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "effectiveprivs/account_listing.h"
#include "effectiveprivs/doors.h"
#include "effectiveprivs/evaluation.h"
#include "platform/accounts.h"

namespace paddock::effectiveprivs {

// What is reported of each user: reading data (2), writing or appending data (4, 32), changing the
// list (4096).
inline constexpr std::size_t kRights = 3;
inline constexpr std::array<const char*, kRights> kRightNames = {"read", "write", "permissions"};

struct Right {
  bool granted = false;
  bool isDoubted = false;
  std::string by;  // as ExplainedPermission has these
  std::optional<std::size_t> entry;
  std::string principal;
  std::vector<std::string> through;
  std::string text;
};
using Rights = std::array<Right, kRights>;

struct Person {
  std::string name;  // the uid where no account has it
  std::uint32_t uid = 0;
  std::shared_ptr<const Rights> rights;  // shared by those who have the same for the same reasons
  PathAnswer answer;
};

// The largest number of users reported.
inline constexpr std::size_t kMostPeople = 10'000;

struct Who {
  // Whom an entry, the owner or the owning group means, by name: those who may do something, and
  // where everybody else may, too, those who may not. Where there are
  // too many, those whom only a group means are cut.
  std::vector<Person> people;
  std::size_t left = 0;  // how many more there are
  Person everybodyElse;  // every other account
  Person withoutAccount;
  std::vector<LeftOutNode> leftOut;  // what only they know is missing; for the caller to set

  // Whether an entry for an unknown principal leaves anything in doubt.
  bool isDoubted() const;
};

// Throws DirectoryError when a node cannot answer.
Who whoMay(const ObjectPrivileges& object, const DoorQuestions& doors, AccountListing& listing,
           Accounts& accounts, std::size_t mostPeople = kMostPeople);

// `head` names the object. Lines for people, each with its end; one line of JSON, without its end.
std::string whoText(const std::string& head, const Who& who);
std::string whoJson(const std::string& path, const Who& who);

}  // namespace paddock::effectiveprivs
