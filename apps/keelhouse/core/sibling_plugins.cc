#include "keelhouse/core/sibling_plugins.h"

#include <cerrno>
#include <system_error>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"

namespace paddock::keelhouse {

std::optional<Dictionary> askIfLoaded(const Session& session, const char* plugin,
                                      const char* operation, const Dictionary& request) {
  try {
    return session.daemon.call(plugin, operation, request);
  } catch (const Failure& failure) {
    if (std::string(failure.what()).find("(HTTP 404)") != std::string::npos) return std::nullopt;
    throw;
  }
}

std::string messageOf(const Dictionary& reply) {
  if (const std::string* message = reply.string("message")) return printable(*message);
  const auto status = static_cast<int>(reply.integer("status").value_or(EIO));
  return std::generic_category().message(status);
}

void requireDone(const Dictionary& reply, const std::string& action) {
  const auto status = reply.integer("status").value_or(EIO);
  if (status == 0) return;
  throw daemonFailure(action + ": " + messageOf(reply) + nameAndNumber(status));
}

}  // namespace paddock::keelhouse
