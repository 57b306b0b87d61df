// An access-control list as it is judged: whom each entry is for, and what it says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/guid.h"
#include "platform/acl.h"

namespace paddock::effectiveprivs {

// Whom an entry is for.
struct Subject {
  enum class Kind {
    nobody,         // an entry of a kind that gives and denies nothing, or for nobody who can come
    user,           // by `id`
    group,          // by `id`
    guid,           // a user or group by `guid`
    everyone,       // S-1-1-0
    network,        // S-1-5-2, whoever comes over a network; who is judged by a list does
    authenticated,  // S-1-5-11, Authenticated Users
    ownerRights,    // S-1-3-4, whoever owns the object
    accounts,       // those in `uids`
    unknown,        // somebody whom nobody here knows: it may be for anybody
  };
  Kind kind = Kind::nobody;
  std::uint32_t id = 0;
  Guid guid{};
  // The SID as text, for those of no kind that has a name.
  std::string sid{};
  // Of Kind::guid: it is known to be a user's.
  bool isUsers = false;
  // Of Kind::accounts.
  std::shared_ptr<const std::set<std::uint32_t>> uids{};
};

struct Rule {
  bool allow = false;
  Subject subject;
  acl::Permission permissions = 0;
  // For those who inherit the entry alone, so that it says nothing of the object itself.
  bool onlyInherit = false;
};

// The entries in their order.
struct RuleList {
  std::vector<Rule> rules;
  // Nothing falls back to the mode.
  bool complete = false;
};

}  // namespace paddock::effectiveprivs
