// The C boundary between the host and a plug-in's shared object.
//
// A plug-in NAME is the shared object NAME.so in NAME.bundle/Contents. It exports two C
// symbols, which PADDOCK_PLUGIN defines:
//
//   int paddock_plugin_interface_version(void);
//   void paddock_plugin_create(struct PaddockPluginResult* result);
//
// The host asks for the version first and refuses a plug-in whose number is not its own.
// `paddock_plugin_create` never throws: it sets either `handler` (owned by the host from
// then on) or `error`, a text cut to fit. A plug-in is never unloaded.
#pragma once

#include <cstring>
#include <exception>

#include "paddock/plugin_request_handler.h"

#define PADDOCK_PLUGIN_INTERFACE_VERSION 1
#define PADDOCK_PLUGIN_EXPORT __attribute__((visibility("default")))

extern "C" {

struct PaddockPluginResult {
  paddock::PluginRequestHandler* handler;
  char error[512];
};

using PaddockPluginInterfaceVersion = int (*)();
using PaddockPluginCreate = void (*)(PaddockPluginResult*);

}  // extern "C"

namespace paddock {

// Constructs a Handler into `result`, turning whatever its constructor throws into a text.
template <typename Handler>
void createPlugin(PaddockPluginResult* result) noexcept {
  const auto fail = [result](const char* text) noexcept {
    result->handler = nullptr;
    std::strncpy(result->error, text, sizeof result->error - 1);
    result->error[sizeof result->error - 1] = '\0';
  };
  try {
    result->error[0] = '\0';
    result->handler = new Handler();  // NOLINT(cppcoreguidelines-owning-memory): the host owns it
  } catch (const std::exception& error) {
    fail(error.what());
  } catch (...) {
    fail("an exception that is not a std::exception");
  }
}

}  // namespace paddock

#define PADDOCK_PLUGIN(Handler)                                                      \
  extern "C" PADDOCK_PLUGIN_EXPORT int paddock_plugin_interface_version() noexcept { \
    return PADDOCK_PLUGIN_INTERFACE_VERSION;                                         \
  }                                                                                  \
  extern "C" PADDOCK_PLUGIN_EXPORT void paddock_plugin_create(                       \
      PaddockPluginResult* result) noexcept {                                        \
    paddock::createPlugin<Handler>(result);                                          \
  }
