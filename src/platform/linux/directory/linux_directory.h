// The directory service of a Linux server: the nodes "/Local" and "/System", "/LDAP/NAME" for each
// directory server, and "/Search" over them in this order.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "platform/linux/accounts/extra_users.h"
#include "platform/linux/accounts/pam_authentication.h"
#include "platform/linux/directory/local_node.h"
#include "platform/linux/ldap/ldap_options.h"
#include "platform/search_node.h"

namespace paddock {

struct LinuxDirectoryOptions {
  std::string databasePath = "/var/lib/paddock/directory.sqlite";
  std::string adminGroup = "paddock";
  // The directory servers, in search order.
  std::vector<LdapOptions> ldap = {};
  // How "/System" authenticates; without PAM, authenticating there raises ENOTSUP.
  std::optional<PamOptions> pam = PamOptions{};
  // Whether, and where, the users and groups of "/Local" are exported to the host. Every change of
  // them is in the files when the call that made it returns.
  std::optional<ExtraUsersOptions> extraUsers = std::nullopt;
  // Notified of nodes that a search skipped; may be null.
  std::shared_ptr<NodeObserver> observer = nullptr;
};

class LinuxDirectoryService final : public DirectoryService {
 public:
  // Opens nothing yet, so that a damaged database does not affect anything else.
  explicit LinuxDirectoryService(const LinuxDirectoryOptions& options);

  std::unique_ptr<DirectorySession> openLocal() override;

  // The node "/Local" with its passwords. Propagates exceptions of opening it.
  std::shared_ptr<LocalDirectoryNode> openLocalNode();

  // Applies changes in "/Local" or in the host that were made without a call of this service. Does
  // nothing where nothing can have changed; cheap enough for every second. Never throws: failures
  // are logged.
  void refreshExtraUsers() noexcept;

 private:
  std::shared_ptr<LocalDatabase> database_;
  std::shared_ptr<ExtraUsers> extraUsers_;  // null: they are not exported to the host
  std::string adminGroup_;
  std::shared_ptr<const NodeList> nodes_;
  std::shared_ptr<NodeObserver> observer_;
};

}  // namespace paddock
