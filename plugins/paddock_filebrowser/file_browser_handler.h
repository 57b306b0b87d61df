// The plug-in paddock_filebrowser: what this server mounts from other servers.
//
// Operations.
//
//   nfsWriteMountRec {"nfsServerHostName", "nfsExportPath", "nfsResharePath"} -> "status"
//       notes in "/Local" that the export of the other server is mounted at the re-share path; see
//       writeMountRecord. EINVAL: a key that is missing, no string or not what checkNfsMount takes;
//       other numbers are the directory's. A status that is not 0 has its text under "error", and
//       then nothing was changed.
#pragma once

#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "paddock/plugin_request_handler.h"
#include "platform/directory.h"

namespace paddock {

class FileBrowserRequestHandler final : public PluginRequestHandler {
 public:
  // With the directory below the host's root.
  FileBrowserRequestHandler();
  // With another directory, never null.
  explicit FileBrowserRequestHandler(std::unique_ptr<DirectoryService> directory);

  std::vector<Operation> operations() const override;
  Dictionary performOperation(std::string_view name, const Dictionary& request) override;

 private:
  Dictionary nfsWriteMountRec(const Dictionary& request);

  std::unique_ptr<DirectoryService> directory_;
  // Looking for a record and making it is not one step.
  std::mutex changing_;
};

}  // namespace paddock
