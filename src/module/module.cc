// The plug-in entry.
#include <chrono>
#include <cstdint>

#include "exports/replaced_exports.h"
#include "handler/settings_lock.h"
#include "handler/sharing_request_handler.h"
#include "module/linux_services.h"
#include "paddock/host.h"
#include "paddock/plugin.h"
#include "platform/linux/directory/linux_shared_folders.h"
#include "platform/services.h"

namespace paddock {

namespace {

constexpr std::int64_t kLockSeconds = 30;
constexpr const char* kSharedFoldersPath = "/var/lib/paddock/shared-folders.sqlite";

// Read for each wait, because the configuration may have been read again.
std::chrono::milliseconds configuredPatience() {
  const Dictionary* limits = host().configuration().dictionary("limits");
  const auto seconds = limits != nullptr ? limits->integer("lock_seconds") : std::nullopt;
  return std::chrono::seconds(seconds.value_or(kLockSeconds));
}

// The handler with the platform services under it: made before it, let go of after it.
class SharingModule : private InstalledServices, public SharingRequestHandler {
 public:
  SharingModule() {
    logLeftFiles(services().exportsPath);
    setSettingsLockPatience(configuredPatience);
    setSharedFolders(&sharedFolders_);
  }

 private:
  LinuxSharedFolders sharedFolders_{hostPath(kSharedFoldersPath), services().logger};
};

}  // namespace

}  // namespace paddock

PADDOCK_PLUGIN(paddock::SharingModule)
