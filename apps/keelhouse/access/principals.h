// Who ACL entries are about: from names to what the daemon takes, and from GUIDs to names.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/principal.h"
#include "keelhouse/core/account_names.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// A user or group, by one of the two.
struct ResolvedPrincipal {
  std::optional<Guid> guid;
  std::optional<Principal> id;
};

struct KnownPrincipal {
  std::string text;             // as it can be typed: "user:anna", or the GUID
  std::optional<Principal> id;  // absent: the GUID belongs to no uid and no gid that is known here
};

class Principals {
 public:
  explicit Principals(const Session& session) : session_(session) {}

  // Resolves a user or group of this host to its id; one that this host does not know by its record
  // in a directory node: to its GUID, else its id. A number that is no name is an id itself. Throws
  // Failure for an unknown name (failed), and for one without "user:" or "group:" that both a user
  // and a group have (usage).
  ResolvedPrincipal resolve(const PrincipalName& name) const;

  // The owner of the GUID. The records of "/Local" are requested once, and only when the GUID does
  // not identify the principal by itself; without them, principals that only they name are unknown.
  KnownPrincipal identify(const Guid& guid);

  // Whether the GUID is that principal's.
  bool same(const ResolvedPrincipal& principal, const Guid& guid);

 private:
  const std::vector<LocalAccount>& localAccounts();
  std::string typedText(const Principal& id, const Guid& guid);
  KnownPrincipal describe(const LocalAccount& account, const Guid& guid);

  const Session& session_;
  std::optional<std::vector<LocalAccount>> localAccounts_;
  std::map<Guid, KnownPrincipal> known_;
};

// The failure for an unknown name, with the closest existing one on this host or in "/Local"; with
// none where there are more than some thousands, or they cannot be listed.
Failure nobodyNamed(const Session& session, const PrincipalName& name);
// Throws it for an unknown name. Does nothing where the directory cannot be queried.
void requireSomebody(const Session& session, PrincipalType type, const std::string& name);

// The keys of an entry that name the principal.
Dictionary wireKeys(const ResolvedPrincipal& principal);

}  // namespace paddock::keelhouse
