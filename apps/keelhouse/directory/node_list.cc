#include "keelhouse/directory/node_list.h"

#include "keelhouse/core/failure.h"
#include "keelhouse/core/reply_status.h"

namespace paddock::keelhouse {

std::vector<UnansweredNode> unansweredNodes(const Dictionary& health) {
  std::vector<UnansweredNode> unanswered;
  const Array* nodes = health.array("nodes");
  if (nodes == nullptr) return unanswered;
  for (const Value& value : *nodes) {
    const Dictionary* node = value.dictionary();
    if (node != nullptr) unanswered.push_back({textOf(*node, "path"), textOf(*node, "since")});
  }
  return unanswered;
}

std::string nobodyText(const Session& session, const std::string& what) {
  std::string silent;
  try {
    for (const UnansweredNode& node : unansweredNodes(session.daemon.get("/v1/health")))
      silent += (silent.empty() ? "" : " and ") + node.path;
  } catch (const Failure& failed) {
    if (failed.status() == ExitStatus::unreachable) throw;
  }
  if (silent.empty())
    return "there is no " + what + ", neither on this host nor in a directory node";
  return "there is no " + what + " on this host and in the directory nodes that answer; " + silent +
         ", which may have one, cannot be asked now\nSee the nodes: keelhouse nodes";
}

std::vector<Node> askNodes(const Session& session) {
  const Dictionary reply = session.daemon.call("paddock_directory", "listNodes", {});
  requireStatus(reply, "status", "the directory nodes cannot be listed");
  const Array* list = reply.array("nodes");
  if (list == nullptr) throw failure("the daemon's reply has no list of nodes");
  std::vector<Node> nodes;
  for (const Value& value : *list) {
    const Dictionary* entry = value.dictionary();
    if (entry == nullptr) continue;
    nodes.push_back({textOf(*entry, "path"), textOf(*entry, "state"), textOf(*entry, "error"),
                     entry->integer("milliseconds").value_or(0), textOf(*entry, "basis")});
  }
  return nodes;
}

std::string describeState(const Node& node) {
  if (node.basis == "configured") return node.state + " (as configured)";
  if (node.basis == "accepted") return node.state + " (it took a change)";
  if (node.basis == "refused") return node.state + " (it refused a change)";
  return node.state;
}

std::string describeNode(const Node& node) {
  const std::string time = std::to_string(node.milliseconds) + " ms";
  return describeState(node) + ", " + time + (node.error.empty() ? "" : ": " + node.error);
}

}  // namespace paddock::keelhouse
