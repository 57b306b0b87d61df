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
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "paddock/plugin_request_handler.h"
#include "platform/directory.h"

namespace paddock {

// The records of what this server mounts from other servers and shares again.

// A mount of another server's export.
struct NfsMount {
  std::string host;        // the other server
  std::string exportPath;  // what it exports
  std::string mountPoint;  // where it is mounted here
};

// 0 when a record can be made of it, otherwise EINVAL. The host is a name or an address as
// mount(8) takes it before the colon: up to 255 bytes, without white space, control characters,
// colons and slashes, not beginning with a hyphen. Paths are absolute, up to 4,095 bytes, without
// control characters and without the components "." and "..". All is UTF-8.
Status checkNfsMount(const NfsMount& mount);

// Makes the record HOST:EXPORTPATH of the type "dsRecTypeStandard:Mounts" on the node, with the
// mount point as "dsAttrTypeStandard:VFSLinkDir" and "nfs" as "dsAttrTypeStandard:VFSType". A
// record of that name that is there already stays as it is. All or nothing; throws what the
// directory throws.
void writeMountRecord(DirectoryNode& node, const NfsMount& mount);

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
  // Lookup and creation of a record are not atomic.
  Mutex changing_;
};

}  // namespace paddock
