#include "effectiveprivs/installation.h"

#include <utility>

#include "base/guid.h"
#include "configuration/configuration.h"
#include "effectiveprivs/effectiveprivs_failure.h"
#include "platform/directory.h"
#include "platform/linux/accounts/account_searches.h"
#include "platform/linux/configured_options.h"

namespace paddock::effectiveprivs {

Installation::Installation(const std::string& root)
    : Installation(readInstalledConfiguration(root), root) {}

// What is only read needs no file of remembered SIDs.
Installation::Installation(const Dictionary& configuration, const std::string& root)
    : root_(root),
      directory_(configuredDirectory(configuration, root)),
      files_(clock_, AccountFiles::usual({configuredDirectory(configuration, root).databasePath})),
      membership_(directory_),
      samba_(std::make_shared<SambaAccountReader>(root)),
      sids_(membership_, "", configuredSidResolver(configuration, root, samba_)),
      objects_(configuredPrivileges(configuration, root).attribute, sids_, *samba_) {}

// A GUID that is made of an id is that id's, and known.
Installation::Named Installation::namedBy(const Guid& guid) {
  if (const auto principal = computedPrincipal(guid))
    return principal->type == PrincipalType::user ? Named::user : Named::other;
  const auto [place, isNew] = records_.try_emplace(guid, Named::nobody);
  if (!isNew) return place->second;
  const Array records = nodes_.openLocal()->searchNode()->findRecordsOfTypes(
      {schema::kUsers, schema::kGroups}, schema::kGeneratedUID, guidText(guid),
      MatchType::caseInsensitiveExact);
  for (const Value& record : records) {
    const std::string* type = firstValue(record, schema::kRecordType);
    if (place->second != Named::other)
      place->second = type != nullptr && *type == schema::kUsers ? Named::user : Named::other;
  }
  return place->second;
}

void Installation::markStrangers(ObjectPrivileges& object,
                                 const std::function<bool(const Subject& subject)>& isKnown) {
  if (!object.list) return;
  for (Rule& rule : object.list->rules) {
    if (rule.subject.kind != Subject::Kind::guid || rule.permissions == 0) continue;
    const bool known = isKnown(rule.subject);
    if (known && leftOut().empty()) continue;
    const Named named = namedBy(rule.subject.guid);
    rule.subject.isUsers = named == Named::user;
    if (!known && named == Named::nobody) rule.subject.kind = Subject::Kind::unknown;
  }
  object.unaskedNodes = nodes_.leftOutPaths();
}

Identity Installation::identify(std::uint32_t uid) {
  UserMembership membership;
  // Root may do everything, independently of any lookup.
  if (uid == 0) return {uid, std::move(membership), {}};
  ask("cannot find out the groups of user " + std::to_string(uid), [&] {
    if (const int error = groups_.membershipOf(uid, membership); error != 0)
      throw DirectoryError(error, membership.error);
  });
  std::vector<std::uint32_t> hostGids;
  if (const int error = knownHostGroups_.groupsOf(uid, hostGids); error != 0)
    throw failureOf("find out the host's groups of", "user " + std::to_string(uid), error);
  return {uid, std::move(membership), std::move(hostGids)};
}

}  // namespace paddock::effectiveprivs
