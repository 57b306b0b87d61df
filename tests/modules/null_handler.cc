// Gives neither a handler nor a reason.

#include "paddock/plugin.h"

extern "C" PADDOCK_PLUGIN_EXPORT int paddock_plugin_interface_version() noexcept {
  return PADDOCK_PLUGIN_INTERFACE_VERSION;
}
extern "C" PADDOCK_PLUGIN_EXPORT void paddock_plugin_create(PaddockPluginResult* result) noexcept {
  result->handler = nullptr;
}
