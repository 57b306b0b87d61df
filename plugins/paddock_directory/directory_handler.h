// The plug-in paddock_directory: the records of the directory for administrators.
#pragma once

#include <future>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "paddock/plugin_request_handler.h"
#include "platform/host/host_services.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/process/linux_machine_information.h"

namespace paddock {

class DirectoryRequestHandler final : public PluginRequestHandler {
 public:
  // Takes the directory's options from the host's root and configuration (configured_options.h).
  DirectoryRequestHandler();

  // Give the users and groups of "/Local" to the host where it is to have them: at the start, and
  // whenever something has changed without a request. Nodes that did not answer are asked again, so
  // that they are marked no longer once they do.
  PluginRequestHandler* init() override;
  std::int64_t doIdleAtCount(std::uint64_t count) override;

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  void askUnansweredAgain();

  LinuxClock clock_;
  HostLogger logger_;
  LinuxDirectoryService directory_;
  // Held by operations that change records: lookup and creation are not atomic.
  Mutex changing_;
  std::future<void> asking_;  // the last: it ends before the directory does
};

}  // namespace paddock
