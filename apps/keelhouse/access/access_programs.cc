#include "keelhouse/access/access_programs.h"

#include <unistd.h>

#include <optional>
#include <utility>

#include "base/printable.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/tree_program.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kPlugin = "paddock_access";
constexpr const char* kProgram =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
constexpr long kNotFound = 404;

// Absent when root is to run the program itself.
std::optional<Dictionary> askDaemon(const Session& session, const std::string& operation,
                                    const Dictionary& request) {
  try {
    return session.daemon.call(kPlugin, operation, request);
  } catch (const Failure& failed) {
    if (!leavesItToRoot(failed)) throw;
  }
  return std::nullopt;
}

}  // namespace

bool leavesItToRoot(const Failure& failure) {
  if (::geteuid() != 0) return false;
  const auto* refusal = dynamic_cast<const Refusal*>(&failure);
  return failure.status() == ExitStatus::unreachable ||
         (refusal != nullptr && refusal->httpStatus() == kNotFound);
}

ExitStatus judgeAccess(const Session& session, const std::string& operation, Dictionary request,
                       std::vector<std::string> arguments) {
  if (session.json) {
    request.set("json", true);
    arguments.insert(arguments.begin(), "--json");
  }
  const auto reply = askDaemon(session, operation, request);
  if (!reply) return runTreeProgram(session, kProgram, arguments);
  if (const std::string* error = reply->string("error"))
    throw errorFailure("nobody can say who may do what", *error);
  const auto status = reply->integer("status");
  const std::string* output = reply->string("output");
  const std::string* errors = reply->string("errors");
  if (!status || output == nullptr || errors == nullptr)
    throw daemonFailure("the daemon's reply does not say what its program said");
  session.out << *output;
  session.notes << printableLines(*errors);
  return static_cast<ExitStatus>(*status);
}

}  // namespace paddock::keelhouse
