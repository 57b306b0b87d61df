#include "effectiveprivs/installation.h"

#include <utility>

#include "base/computed_guid.h"
#include "configuration/configuration.h"
#include "effectiveprivs/failure.h"
#include "platform/directory_schema.h"
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
bool Installation::hasRecord(const Guid& guid) {
  if (computedPrincipal(guid)) return true;
  const auto [place, isNew] = records_.try_emplace(guid, false);
  if (isNew)
    place->second =
        !directory_.openLocal()
             ->searchNode()
             ->findRecordsOfTypes({schema::kUsers, schema::kGroups}, schema::kGeneratedUID,
                                  guidText(guid), MatchType::caseInsensitiveExact)
             .empty();
  return place->second;
}

void Installation::markStrangers(ObjectPrivileges& object,
                                 const std::function<bool(const Subject& subject)>& isKnown) {
  if (!object.list) return;
  try {
    for (Rule& rule : object.list->rules) {
      const bool matters = rule.subject.kind == Subject::Kind::guid && rule.permissions != 0;
      if (matters && !isKnown(rule.subject) && !hasRecord(rule.subject.guid))
        rule.subject.kind = Subject::Kind::unknown;
    }
  } catch (const DirectoryError& error) {
    throw Failure(std::string("cannot find out whom the entries name: ") + error.what());
  }
}

Identity Installation::identify(std::uint32_t uid) {
  UserMembership membership;
  // Root may do everything whoever else is asked about.
  if (uid == 0) return {uid, std::move(membership), {}};
  if (groups_.membershipOf(uid, membership) != 0)
    throw Failure("cannot find out the groups of user " + std::to_string(uid) + ": " +
                  membership.error);
  std::vector<std::uint32_t> hostGids;
  if (const int error = knownHostGroups_.groupsOf(uid, hostGids); error != 0)
    throw failureOf("find out the host's groups of", "user " + std::to_string(uid), error);
  return {uid, std::move(membership), std::move(hostGids)};
}

AccountListing Installation::list() {
  try {
    return AccountListing(directory_);
  } catch (const DirectoryError& error) {
    throw Failure(std::string("cannot list the accounts: ") + error.what());
  }
}

}  // namespace paddock::effectiveprivs
