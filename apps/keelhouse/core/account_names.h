// Users and groups as the command line names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/guid.h"
#include "base/principal.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

struct PrincipalName {
  enum class Kind { user, group, either, guid };
  Kind kind = Kind::either;
  std::string name;  // of a guid: its canonical text
};

// "user:NAME", "group:NAME", a GUID, or a name alone, which stands for a user or a group. Throws
// Failure (usage) for an empty name and one that is not UTF-8.
PrincipalName parsePrincipal(std::string_view text);

// The text that reads as that name.
std::string formatPrincipal(const PrincipalName& name);

// Users and groups of this host, by way of the name service switch.

// The id of the user or group of that name, or the name of that id; absent when there is none.
// Throws Failure when the name service cannot answer.
std::optional<std::uint32_t> hostId(PrincipalType type, const std::string& name);
std::optional<std::string> hostName(const Principal& principal);

// The names of all users, or of all groups, as far as the name service lists them; none when there
// are more than `most`, or listing them takes more than a second.
std::vector<std::string> hostNames(PrincipalType type, std::size_t most);

// Users and groups that have a record in a directory node.
struct LocalAccount {
  PrincipalType type = PrincipalType::user;
  std::string name;
  std::optional<Guid> guid;         // its "dsAttrTypeStandard:GeneratedUID"
  std::optional<std::uint32_t> id;  // its "UniqueID", of a group its "PrimaryGroupID"
};

// The account of that name in the first node that has one; absent when none has. Throws Failure.
std::optional<LocalAccount> findAccount(const Session& session, PrincipalType type,
                                        const std::string& name);

// Every user and group of "/Local". Throws Failure.
std::vector<LocalAccount> listLocalAccounts(const Session& session);

}  // namespace paddock::keelhouse
