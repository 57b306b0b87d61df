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
//
// It may export a third one, the description of its operations, for the document that describes the
// daemon's interface. The text is JSON, NUL-terminated and valid as long as the process:
//
//   const char* paddock_plugin_description(void);
//
//   {"about": text, "schemas": {NAME: schema, ...}, "operations": {OPERATION: {
//      "summary": text, "description": text, "request": schema, "reply": schema,
//      "statuses": {NUMBER OR NAME: when it comes, ...}, "audit": what its audit line has besides,
//      "auditedOnce": {"request": [KEY, ...], "reply": [KEY, ...]},
//      "responses": further ones of OpenAPI by HTTP status,
//      "examples": [{"summary": text, "request": dictionary, "reply": dictionary,
//                    "audit": dictionary}]}}}
//
// A schema is one of JSON Schema, of an object; `#/components/schemas/PLUGIN.NAME` refers to one of
// "schemas". "auditedOnce" is for a polling operation: a request has an audit line when the values
// of "reply" differ from the user's last request with the same values of "request". A nested key is
// written with dots. Every key is optional. Who may call an operation is not described there, since
// `PluginRequestHandler::operations` decides it.
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
using PaddockPluginDescription = const char* (*)();

}  // extern "C"

namespace paddock {

// Constructs a Handler into `result`; an exception of its constructor becomes the error text.
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
