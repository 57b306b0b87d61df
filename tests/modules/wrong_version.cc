// Made for an interface that the host does not have.

#include "plain_handler.h"

extern "C" PADDOCK_PLUGIN_EXPORT int paddock_plugin_interface_version() noexcept { return 99; }
extern "C" PADDOCK_PLUGIN_EXPORT void paddock_plugin_create(PaddockPluginResult* result) noexcept {
  paddock::createPlugin<PlainHandler>(result);
}
