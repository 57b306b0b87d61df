// The plug-in entry.
#include "handler/sharing_request_handler.h"
#include "module/linux_services.h"
#include "paddock/plugin.h"

namespace paddock {

namespace {

// The handler with the platform services under it: made before it, let go of after it.
class SharingModule : private InstalledServices, public SharingRequestHandler {};

}  // namespace

}  // namespace paddock

PADDOCK_PLUGIN(paddock::SharingModule)
