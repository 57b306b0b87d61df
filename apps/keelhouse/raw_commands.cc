#include "keelhouse/raw_commands.h"

#include <unistd.h>

#include "keelhouse/command_words.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/reply_leaves.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kMaximumRequest = std::size_t{1} << 30U;

ExitStatus exitStatusOf(const Dictionary& reply) {
  return reportsFailure(reply) ? ExitStatus::failed : ExitStatus::done;
}

// The daemon checks again; here a mistake of the caller is told from a refusal.
void checkRequest(const std::string& text) {
  std::string error;
  const auto request = wire::parseJson(text, error);
  if (!request) throw usageFailure("the request is not JSON: " + error);
  if (request->dictionary() == nullptr) throw usageFailure("the request is no JSON dictionary");
}

}  // namespace

ExitStatus runRequest(const Session& session, const std::string& plugin,
                      const std::string& operation, const std::string& json) {
  const std::string text = json == "-" ? readAll(STDIN_FILENO, kMaximumRequest) : json;
  checkRequest(text);
  const Dictionary reply = session.daemon.post(plugin, operation, text);
  session.out << (session.json ? wire::writeJson(reply) : wire::writeJsonPretty(reply)) << '\n';
  return exitStatusOf(reply);
}

ExitStatus runCommand(const Session& session, const std::vector<std::string>& words) {
  const PluginCommand command = parseCommandWords(words);
  // Not `call`: of these the reply alone is told, whatever the log says.
  const Dictionary reply = session.daemon.post("paddock_" + command.shortName, command.operation,
                                               wire::writeJson(command.arguments));
  if (session.json) {
    session.out << wire::writeJson(reply) << '\n';
  } else {
    session.out << formatLeaves(command.shortName, reply);
  }
  return exitStatusOf(reply);
}

}  // namespace paddock::keelhouse
