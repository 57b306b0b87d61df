// Who may change the directory after having authenticated.
#pragma once

#include <optional>
#include <string>

namespace paddock {

// A user as a directory record describes it.
struct AuthenticatedUser {
  std::string name;                           // the record's name
  std::optional<std::string> uniqueId;        // UniqueID
  std::optional<std::string> primaryGroupId;  // PrimaryGroupID
};

// By name or id 0.
bool isRoot(const AuthenticatedUser& user);

// Whether the name service counts the user to the group: as a member by name, or by the primary
// group of the record or of the system's user of that name. False for an unknown group.
bool isInSystemGroup(const AuthenticatedUser& user, const std::string& group);

}  // namespace paddock
