#include "effectiveprivs/installation.h"

#include <utility>

#include "configuration/configuration.h"
#include "effectiveprivs/failure.h"
#include "platform/linux/configured_options.h"

namespace paddock::effectiveprivs {

Installation::Installation(const std::string& root)
    : Installation(readInstalledConfiguration(root), root) {}

// What is only read needs no file of remembered SIDs.
Installation::Installation(const Dictionary& configuration, const std::string& root)
    : directory_(configuredDirectory(configuration, root)),
      files_(clock_, AccountFiles::usual({configuredDirectory(configuration, root).databasePath})),
      membership_(directory_),
      sids_(membership_, "", configuredSidResolver(configuration, root)),
      objects_(configuredPrivileges(configuration, root).attribute, sids_) {}

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
