// The plug-in entry.
#include "exports/replaced_exports.h"
#include "handler/sharing_request_handler.h"
#include "module/linux_services.h"
#include "paddock/host.h"
#include "paddock/plugin.h"
#include "platform/linux/directory/linux_shared_folders.h"
#include "platform/services.h"

namespace paddock {

namespace {

constexpr const char* kSharedFoldersPath = "/var/lib/paddock/shared-folders.sqlite";

// The handler with the platform services under it: made before it, let go of after it.
class SharingModule : private InstalledServices, public SharingRequestHandler {
 public:
  SharingModule() {
    logLeftFiles(services().exportsPath);
    setSharedFolders(&sharedFolders_);
  }

 private:
  LinuxSharedFolders sharedFolders_{hostPath(kSharedFoldersPath), services().logger};
};

}  // namespace

}  // namespace paddock

PADDOCK_PLUGIN(paddock::SharingModule)
