// Users and groups that have a record in a directory node.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/principal.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

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
