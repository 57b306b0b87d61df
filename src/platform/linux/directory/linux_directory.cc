#include "platform/linux/directory/linux_directory.h"

#include "platform/linux/directory/system_node.h"
#include "platform/linux/ldap/ldap_node.h"

namespace paddock {

LinuxDirectoryService::LinuxDirectoryService(const LinuxDirectoryOptions& options)
    : database_(std::make_shared<LocalDatabase>(options.databasePath)),
      adminGroup_(options.adminGroup),
      observer_(options.observer) {
  if (options.extraUsers) {
    extraUsers_ = std::make_shared<ExtraUsers>(*options.extraUsers);
    // Nodes, and the database with them, may outlive this service.
    database_->onAccountChange(
        [extraUsers = extraUsers_, &database = *database_](LocalStore& store) {
          extraUsers->write(store, database.generation());
        });
  }
  NodeList nodes;
  nodes.push_back({kLocalNodePath, [database = database_, group = adminGroup_, seen = observer_] {
                     return paddock::openLocalNode(database, group, seen);
                   }});
  nodes.push_back({kSystemNodePath,
                   [pam = options.pam, seen = observer_] { return makeSystemNode(pam, seen); }});
  for (const LdapOptions& one : options.ldap)
    nodes.push_back({one.path(), [server = std::make_shared<LdapServer>(one), seen = observer_] {
                       return makeLdapNode(server, seen);
                     }});
  nodes_ = std::make_shared<const NodeList>(std::move(nodes));
}

std::unique_ptr<DirectorySession> LinuxDirectoryService::openLocal() {
  return makeSession(nodes_, observer_);
}

void LinuxDirectoryService::refreshExtraUsers() noexcept {
  if (!extraUsers_) return;
  try {
    database_->use(
        [&](LocalStore& store) { extraUsers_->refresh(store, database_->generation()); });
  } catch (const std::exception& error) {
    extraUsers_->reportTrouble(error.what());
  }
}

std::shared_ptr<LocalDirectoryNode> LinuxDirectoryService::openLocalNode() {
  return paddock::openLocalNode(database_, adminGroup_, observer_);
}

}  // namespace paddock
