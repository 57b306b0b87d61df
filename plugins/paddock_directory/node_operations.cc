#include "paddock_directory/node_operations.h"

#include <chrono>
#include <exception>
#include <future>
#include <string>
#include <vector>

#include "paddock_directory/replies.h"
#include "platform/directory_schema.h"

namespace paddock::nodes {

namespace {

// A user whom every host has: the nodes are asked for one name, whether they have it or not.
constexpr const char* kProbe = "root";

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
}

Dictionary stateOf(DirectoryService& directory, Clock& clock, const std::string& path) {
  Dictionary node{{"path", path}};
  const auto start = clock.monotonicNow();
  try {
    ask(directory, clock, path, node);
  } catch (const std::exception& error) {
    node.set("state", "unreachable");
    node.set("error", error.what());
    node.set("milliseconds", millisecondsSince(start, clock));
  }
  return node;
}

}  // namespace

Dictionary list(DirectoryService& directory, Clock& clock) {
  return replyOf([&]() -> Dictionary {
    std::vector<std::future<Dictionary>> asked;
    for (const Value& path :
         directory.openLocal()->searchNode()->getAttribute(schema::kSearchPath)) {
      if (path.string() == nullptr) continue;
      asked.push_back(std::async(
          [&directory, &clock, path = *path.string()] { return stateOf(directory, clock, path); }));
    }
    Array nodes;
    for (std::future<Dictionary>& node : asked) nodes.emplace_back(node.get());
    return {{"nodes", std::move(nodes)}};
  });
}

}  // namespace paddock::nodes
