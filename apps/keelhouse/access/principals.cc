#include "keelhouse/access/principals.h"

#include <algorithm>
#include <limits>

#include "base/guid.h"
#include "base/principal.h"
#include "base/text.h"
#include "keelhouse/access/ace.h"
#include "keelhouse/core/account_names.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/suggested_words.h"
#include "keelhouse/directory/node_list.h"

namespace paddock::keelhouse {

namespace {

using Kind = PrincipalName::Kind;

const char* nounOf(Kind kind) {
  if (kind == Kind::user) return "user";
  return kind == Kind::group ? "group" : "user or group";
}

std::string prefixed(PrincipalType type, const std::string& name) {
  return formatPrincipal({type == PrincipalType::user ? Kind::user : Kind::group, name});
}

ResolvedPrincipal resolveLocal(const LocalAccount& account) {
  if (account.guid) return {account.guid, std::nullopt};
  if (account.id) return {std::nullopt, Principal{account.type, *account.id}};
  throw failure("the record of " + account.name +
                " has neither a GUID nor a number\nGive it one: keelhouse record put");
}

std::optional<ResolvedPrincipal> findNamed(const Session& session, PrincipalType type,
                                           const std::string& name) {
  if (const auto id = hostId(type, name)) return ResolvedPrincipal{std::nullopt, {{type, *id}}};
  const auto account = findAccount(session, type, name);
  if (!account) return std::nullopt;
  return resolveLocal(*account);
}

// The largest id stands for "none" in the kernel.
std::optional<std::uint32_t> numberIn(const std::string& name) {
  const auto number = parseInteger(name);
  if (!number || *number < 0 || *number >= std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*number);
}

ResolvedPrincipal resolveOf(const Session& session, PrincipalType type, const PrincipalName& name) {
  if (auto found = findNamed(session, type, name.name)) return *found;
  if (const auto number = numberIn(name.name)) return {std::nullopt, {{type, *number}}};
  throw nobodyNamed(session, name);
}

ResolvedPrincipal resolveEither(const Session& session, const PrincipalName& name) {
  const auto user = findNamed(session, PrincipalType::user, name.name);
  const auto group = findNamed(session, PrincipalType::group, name.name);
  if (user && group) {
    throw usageFailure(name.name + " is both a user and a group: write user:" + name.name +
                       " or group:" + name.name);
  }
  if (user) return *user;
  if (group) return *group;
  const WellKnownPrincipal* known =
      wellKnownPrincipal([&](const WellKnownPrincipal& one) { return one.name == name.name; });
  if (known != nullptr) return {parseGuid(known->guid), std::nullopt};
  if (numberIn(name.name)) {
    throw usageFailure("no user or group is named " + name.name +
                       ": for a number write user:" + name.name + " or group:" + name.name);
  }
  throw nobodyNamed(session, name);
}

// An existing name denotes its owner.
bool isTaken(const std::string& name) {
  return hostId(PrincipalType::user, name) || hostId(PrincipalType::group, name);
}

std::vector<LocalAccount> listIfPossible(const Session& session) {
  try {
    return listLocalAccounts(session);
  } catch (const Failure& failed) {
    // Without the records there are numbers and GUIDs instead of names.
    if (failed.status() == ExitStatus::unreachable) throw;
    return {};
  }
}

// Of the host and of `accounts`; without either where there are too many to choose from.
std::vector<std::string> namesOf(PrincipalType type, const std::vector<LocalAccount>& accounts) {
  constexpr std::size_t kMostNames = 5000;
  std::vector<std::string> names = hostNames(type, kMostNames);
  if (accounts.size() > kMostNames) return names;
  for (const LocalAccount& account : accounts) {
    if (account.type == type) names.push_back(account.name);
  }
  return names;
}

// "anna", or "user:anna" where the kind was not said; empty when no name is close.
std::string nearestName(const Session& session, const PrincipalName& name) {
  const std::vector<LocalAccount> accounts = listIfPossible(session);
  const auto nearest = [&](PrincipalType type) {
    return nearestWord(name.name, namesOf(type, accounts));
  };
  if (name.kind == Kind::user) return nearest(PrincipalType::user).value_or(std::string());
  if (name.kind == Kind::group) return nearest(PrincipalType::group).value_or(std::string());
  const auto user = nearest(PrincipalType::user);
  const auto group = nearest(PrincipalType::group);
  if (!user && !group) return {};
  // Of two the nearer one.
  const bool isUser = !group || (user && nearestWord(name.name, {*user, *group}) == user);
  return isUser ? prefixed(PrincipalType::user, *user) : prefixed(PrincipalType::group, *group);
}

}  // namespace

Failure nobodyNamed(const Session& session, const PrincipalName& name) {
  std::string text = nobodyText(session, std::string(nounOf(name.kind)) + " " + name.name);
  std::string nearest;
  try {
    nearest = nearestName(session, name);
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
  }
  if (!nearest.empty())
    text.insert(std::min(text.find('\n'), text.size()), ": did you mean " + nearest + "?");
  return failure(text);
}

void requireSomebody(const Session& session, PrincipalType type, const std::string& name) {
  if (hostId(type, name)) return;
  try {
    if (findAccount(session, type, name)) return;
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
    return;
  }
  throw nobodyNamed(session, {type == PrincipalType::user ? Kind::user : Kind::group, name});
}

ResolvedPrincipal Principals::resolve(const PrincipalName& name) const {
  switch (name.kind) {
    case Kind::guid:
      return {parseGuid(name.name), std::nullopt};
    case Kind::user:
      return resolveOf(session_, PrincipalType::user, name);
    case Kind::group:
      return resolveOf(session_, PrincipalType::group, name);
    case Kind::either:
      break;
  }
  return resolveEither(session_, name);
}

const std::vector<LocalAccount>& Principals::localAccounts() {
  if (!localAccounts_) localAccounts_ = listIfPossible(session_);
  return *localAccounts_;
}

std::string Principals::typedText(const Principal& id, const Guid& guid) {
  if (const auto name = hostName(id)) return prefixed(id.type, *name);
  const auto& accounts = localAccounts();
  const auto account = std::find_if(accounts.begin(), accounts.end(), [&](const auto& one) {
    return one.type == id.type && one.id == id.id && (!one.guid || one.guid == guid);
  });
  // A name that belongs to another account of the host would denote that account.
  if (account != accounts.end() && !account->name.empty() && !hostId(id.type, account->name)) {
    return prefixed(id.type, account->name);
  }
  return prefixed(id.type, std::to_string(id.id));
}

KnownPrincipal Principals::describe(const LocalAccount& account, const Guid& guid) {
  const auto hostsId = hostId(account.type, account.name);
  const bool nameIsHers = !account.name.empty() && (!hostsId || hostsId == account.id);
  KnownPrincipal known{nameIsHers ? prefixed(account.type, account.name) : guidText(guid), {}};
  if (account.id) known.id = Principal{account.type, *account.id};
  return known;
}

KnownPrincipal Principals::identify(const Guid& guid) {
  if (const auto found = known_.find(guid); found != known_.end()) return found->second;
  KnownPrincipal known{guidText(guid), computedPrincipal(guid)};
  if (known.id) {
    known.text = typedText(*known.id, guid);
  } else {
    for (const LocalAccount& account : localAccounts()) {
      if (account.guid != guid) continue;
      known = describe(account, guid);
      break;
    }
    const WellKnownPrincipal* everywhere =
        wellKnownPrincipal([&](const WellKnownPrincipal& one) { return one.guid == known.text; });
    if (everywhere != nullptr && !isTaken(std::string(everywhere->name)))
      known.text = everywhere->name;
  }
  known_[guid] = known;
  return known;
}

bool Principals::same(const ResolvedPrincipal& principal, const Guid& guid) {
  if (principal.guid == guid) return true;
  // One uid or gid may have two GUIDs: the computed one and that of a record.
  const auto id = principal.guid ? identify(*principal.guid).id : principal.id;
  return id && identify(guid).id == id;
}

Dictionary wireKeys(const ResolvedPrincipal& principal) {
  if (principal.guid) return {{"guid", guidText(*principal.guid)}};
  return principal.id ? principalKeys(*principal.id) : Dictionary{};
}

}  // namespace paddock::keelhouse
