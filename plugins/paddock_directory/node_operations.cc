#include "paddock_directory/node_operations.h"

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <exception>
#include <future>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "paddock/sys_logger.h"
#include "paddock/unanswered_nodes.h"
#include "paddock_directory/replies.h"
#include "platform/directory.h"
#include "platform/linux/ldap/ldap_node.h"

namespace paddock::nodes {

namespace {

// A user whom every host has: the nodes are asked for one name, whether they have it or not.
constexpr const char* kProbe = "root";
// The number of nodes queried concurrently.
constexpr std::size_t kAtOnce = 16;

std::int64_t millisecondsSince(std::chrono::steady_clock::time_point start, Clock& clock) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(clock.monotonicNow() - start)
      .count();
}

// Sets what the node answers, or throws what keeps it from answering.
void ask(DirectoryService& directory, Clock& clock, const std::string& path, Dictionary& node) {
  const auto start = clock.monotonicNow();
  const auto opened = directory.openLocal()->findNode(path);
  opened->findRecord(kProbe, schema::kUsers);
  node.set("milliseconds", millisecondsSince(start, clock));
  const bool writable = opened->getAttributeFirstValue(schema::kReadOnlyNode) == schema::kReadWrite;
  node.set("state", writable ? "writable" : "readable");
  if (const auto basis = opened->getAttributeFirstValue(kWriteBasis)) node.set("basis", *basis);
}

struct NodeState {
  Dictionary told;
  std::optional<NodeTrouble> trouble;  // absent when it answers
};

NodeState stateOf(DirectoryService& directory, Clock& clock, const std::string& path) {
  NodeState node{{{"path", path}}, {}};
  const auto start = clock.monotonicNow();
  const auto setTrouble = [&](NodeTrouble trouble, const char* error) {
    node.trouble = trouble;
    node.told.set("state", nodeTroubleName(trouble));
    node.told.set("error", error);
    node.told.set("milliseconds", millisecondsSince(start, clock));
  };
  try {
    ask(directory, clock, path, node.told);
  } catch (const DirectoryError& error) {
    setTrouble(nodeTroubleOf(error.status()), error.what());
  } catch (const std::exception& error) {
    setTrouble(NodeTrouble::broken, error.what());
  }
  return node;
}

std::vector<std::string> textsOf(const Array& values) {
  std::vector<std::string> texts;
  for (const Value& value : values)
    if (value.string() != nullptr) texts.push_back(*value.string());
  return texts;
}

std::vector<std::string> pathsOf(DirectoryService& directory, const Dictionary& request) {
  const Array* named = request.array("paths");
  if (named == nullptr && request.contains("paths"))
    throw DirectoryError(EINVAL, "paths is no array");
  if (named == nullptr)
    return textsOf(directory.openLocal()->searchNode()->getAttribute(schema::kSearchPath));
  if (named->size() > kMostPaths) {
    throw DirectoryError(E2BIG, "paths has " + std::to_string(named->size()) +
                                    " elements, and may have at most " +
                                    std::to_string(kMostPaths));
  }
  return textsOf(*named);
}

// Asks each of them once, several at a time.
std::map<std::string, NodeState> statesOf(DirectoryService& directory, Clock& clock,
                                          const std::vector<std::string>& paths) {
  const std::set<std::string> different(paths.begin(), paths.end());
  std::map<std::string, NodeState> states;
  for (auto next = different.begin(); next != different.end();) {
    std::vector<std::future<NodeState>> asked;
    for (; next != different.end() && asked.size() < kAtOnce; ++next)
      asked.push_back(std::async([&, path = *next, request = currentRequestId()] {
        const RequestIdScope scope(request);
        return stateOf(directory, clock, path);
      }));
    for (std::future<NodeState>& node : asked) {
      NodeState state = node.get();
      const std::string path = *state.told.string("path");
      states.emplace(path, std::move(state));
    }
  }
  return states;
}

void markState(const NodeState& node) {
  const std::string& path = *node.told.string("path");
  if (node.trouble) {
    noteUnanswered(path, *node.trouble, *node.told.string("error"));
  } else {
    noteAnswered(path);
  }
}

}  // namespace

void askAgain(DirectoryService& directory, Clock& clock) {
  for (const UnansweredNode& node : unansweredNodes())
    markState(stateOf(directory, clock, node.path));
}

Dictionary list(DirectoryService& directory, Clock& clock, const Dictionary& request) {
  return replyOf([&]() -> Dictionary {
    const std::vector<std::string> paths = pathsOf(directory, request);
    const auto states = statesOf(directory, clock, paths);
    // An arbitrary path of a request is no node that is expected to respond.
    if (!request.contains("paths")) {
      for (const auto& [path, node] : states) markState(node);
    }
    Array told;
    for (const std::string& path : paths) told.emplace_back(states.at(path).told);
    return {{"nodes", std::move(told)}};
  });
}

}  // namespace paddock::nodes
