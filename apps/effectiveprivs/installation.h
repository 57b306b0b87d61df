// Accounts and lists as a tree's configuration defines them: the same as in its daemon.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/value.h"
#include "effectiveprivs/account_listing.h"
#include "effectiveprivs/answering_nodes.h"
#include "effectiveprivs/identity.h"
#include "effectiveprivs/object_reader.h"
#include "platform/linux/accounts/account_cache.h"
#include "platform/linux/accounts/cached_accounts.h"
#include "platform/linux/accounts/directory_group_membership.h"
#include "platform/linux/accounts/linux_accounts.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/acl/principal_sids.h"
#include "platform/linux/acl/samba_accounts.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/process/linux_machine_information.h"

namespace paddock::effectiveprivs {

class Installation {
 public:
  // The tree below `root`, empty for the system itself. Throws std::runtime_error for a
  // configuration that cannot be used.
  explicit Installation(const std::string& root);

  // By the nodes that respond. Throws Failure when the host cannot identify the user; what is
  // unknown is never guessed.
  Identity identify(std::uint32_t uid);
  // The nodes that have not responded so far.
  const std::vector<LeftOutNode>& leftOut() const { return nodes_.leftOut(); }
  const ObjectReader& objects() const { return objects_; }
  // Turns entries whose principal does not resolve here into entries for an unknown principal.
  // Entries for which `isKnown` is true are left as they are. Where nodes were left out, also marks
  // the principals that they might know. Throws DirectoryError when no node answers.
  void markStrangers(ObjectPrivileges& object,
                     const std::function<bool(const Subject& subject)>& isKnown);
  SambaAccountReader& samba() { return *samba_; }
  const std::string& root() const { return root_; }
  // Names by id are kept.
  Accounts& accounts() { return knownAccounts_; }
  // Throws DirectoryError when a node cannot list its accounts.
  AccountListing list() { return AccountListing(nodes_); }
  // Calls ask(), again without the node when a node does not respond. Throws Failure, beginning
  // with `what`.
  template <typename Ask>
  auto ask(const std::string& what, Ask&& ask) -> decltype(ask()) {
    return nodes_.ask(what, std::forward<Ask>(ask));
  }

 private:
  explicit Installation(const Dictionary& configuration, const std::string& root);
  enum class Named { nobody, user, other };
  Named namedBy(const Guid& guid);

  const std::string root_;
  LinuxDirectoryService directory_;
  AnsweringNodes nodes_{directory_};
  LinuxAccounts accounts_{directory_};
  LinuxClock clock_;
  const AccountFiles files_;
  CachedAccounts knownAccounts_{accounts_, files_};
  LinuxMembership membership_;
  const std::shared_ptr<SambaAccountReader> samba_;
  PrincipalSids sids_;
  NssUserGroups hostGroups_;
  CachedUserGroups knownHostGroups_{hostGroups_, files_};
  DirectoryGroupMembership groups_{nodes_, knownHostGroups_};
  ObjectReader objects_;
  std::map<Guid, Named> records_;
};

}  // namespace paddock::effectiveprivs
