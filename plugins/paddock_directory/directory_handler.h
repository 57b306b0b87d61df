// The plug-in paddock_directory: the records of the directory for administrators.
#pragma once

#include <mutex>
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "platform/linux/linux_directory.h"

namespace paddock {

class DirectoryRequestHandler final : public PluginRequestHandler {
 public:
  // Takes the database's path from the host's root and the administrators' group from its
  // configuration ("access", "admin_group").
  DirectoryRequestHandler();

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  LinuxDirectoryService directory_;
  // Held by operations that change records: finding one and creating it is not one step.
  std::mutex changing_;
};

}  // namespace paddock
