#include "keelhouse/directory/node_commands.h"

#include <algorithm>
#include <cerrno>

#include "base/status.h"
#include "base/text.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/reply_status.h"
#include "keelhouse/core/terminal_text.h"
#include "keelhouse/directory/node_list.h"
#include "protocol/keys.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

Dictionary jsonOf(const Node& node) {
  Dictionary entry{{"path", node.path}, {"state", node.state}, {"milliseconds", node.milliseconds}};
  if (!node.error.empty()) entry.set("error", node.error);
  if (!node.basis.empty()) entry.set("basis", node.basis);
  return entry;
}

void printJson(const Session& session, const std::vector<Node>& nodes) {
  Array list;
  for (const Node& node : nodes) list.emplace_back(jsonOf(node));
  session.out << wire::writeJsonPretty(list) << '\n';
}

void printTable(const Session& session, const std::vector<Node>& nodes) {
  std::vector<std::vector<std::string>> rows = {{"NODE", "STATE", "MS", "ERROR"}};
  for (const Node& node : nodes) {
    rows.push_back({printable(node.path), printable(describeState(node)),
                    std::to_string(node.milliseconds),
                    node.error.empty() ? "-" : printable(node.error)});
  }
  session.out << formatTable(rows);
}

void checkWord(const std::string& word, const std::string& what) {
  if (word.empty()) throw usageFailure("the " + what + " is empty");
  if (!isValidUtf8(word)) throw usageFailure("the " + what + " is not UTF-8");
}

// The error text of a refusal, and below it what to do.
Failure refusal(const std::string& action, const std::string& error, const std::string& node) {
  const std::string text = describeError(action, error);
  switch (statusOfText(error).value_or(0)) {
    case EACCES:
      return daemonFailure(
          text +
          "\nThe name or the password is wrong, or the account may not change records there.");
    case EEXIST:
      return daemonFailure(
          text +
          "\nA trial's record was left there: keelhouse record delete mounts verifyAuthTempName "
          "--node " +
          node);
    default:
      return errorFailure(action, error);
  }
}

}  // namespace

ExitStatus showNodes(const Session& session) {
  const std::vector<Node> nodes = askNodes(session);
  session.json ? printJson(session, nodes) : printTable(session, nodes);
  const bool all =
      std::all_of(nodes.begin(), nodes.end(), [](const Node& node) { return node.isUsable(); });
  return all ? ExitStatus::done : ExitStatus::failed;
}

ExitStatus tryAuthentication(const Session& session, const std::string& node,
                             const std::string& user, int passwordDescriptor) {
  checkWord(node, "node's path");
  checkWord(user, "user's name");
  const std::string password = readPassword(
      passwordDescriptor, "Password of " + printable(user) + " on " + printable(node), false);
  const Dictionary reply = session.daemon.call("paddock_sharing", "canAuthDSNode",
                                               {{protocol::kDsNodeName, node},
                                                {protocol::kDsAdminName, user},
                                                {protocol::kDsAdminPW, password}});
  const bool can = reply.boolean(protocol::kCanAuth).value_or(false);
  if (session.json) session.out << wire::writeJsonPretty(reply) << '\n';
  if (!can) {
    const std::string* error = reply.string("error");
    const std::string action = user + " cannot change records on " + node;
    if (error != nullptr) throw refusal(action, *error, node);
    throw daemonFailure(action + ": the daemon does not say why");
  }
  if (!session.json)
    session.out << printable(user) << " may change records on " << printable(node) << ".\n";
  return ExitStatus::done;
}

}  // namespace paddock::keelhouse
