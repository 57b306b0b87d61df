// The directory service of a Linux server: the nodes "/Local" and "/System", and "/Search"
// over them.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/directory.h"
#include "platform/linux/local_node.h"
#include "platform/linux/pam_authentication.h"
#include "platform/search_node.h"

namespace paddock {

struct LinuxDirectoryOptions {
  std::string databasePath = "/var/lib/paddock/directory.sqlite";
  std::string adminGroup = "paddock";
  // How "/System" authenticates; without PAM, authenticating there raises ENOTSUP.
  std::optional<PamOptions> pam = PamOptions{};
};

class LinuxDirectoryService final : public DirectoryService {
 public:
  // Opens nothing yet, so that a damaged database keeps nothing else from working.
  explicit LinuxDirectoryService(const LinuxDirectoryOptions& options);

  std::unique_ptr<DirectorySession> openLocal() override;

  // The node "/Local" with its passwords. Throws what opening it throws.
  std::shared_ptr<LocalDirectoryNode> openLocalNode();

 private:
  std::shared_ptr<LocalDatabase> database_;
  std::string adminGroup_;
  std::shared_ptr<const NodeList> nodes_;
};

}  // namespace paddock
