#include "effectiveprivs/answering_nodes.h"

#include <algorithm>
#include <cerrno>

#include "base/text.h"
#include "platform/directory.h"
#include "platform/search_node.h"

namespace paddock::effectiveprivs {

// The state of the nodes, shared by all open sessions, which may outlive the service.
class NodeNotes final : public NodeObserver {
 public:
  void leftOut(const std::string& path, const DirectoryError& error) override {
    if (!isNeeded(path, error) && !has(path)) nodes.push_back({path, error.what()});
  }
  // A process that may not read the local directory gets no answer from the other nodes.
  static bool isNeeded(const std::string& path, const DirectoryError& error) {
    const bool isForbidden = error.status() == EACCES || error.status() == EPERM;
    return path == kSystemNodePath || (path == kLocalNodePath && isForbidden);
  }
  void answered(const std::string& /*path*/) override {}
  bool has(const std::string& path) const {
    return std::any_of(nodes.begin(), nodes.end(),
                       [&](const LeftOutNode& node) { return node.path == path; });
  }

  // Returns what ask() does; what it throws is noted.
  template <typename Ask>
  auto watch(const std::string& path, Ask&& ask) -> decltype(ask()) {
    try {
      return ask();
    } catch (const DirectoryError& error) {
      leftOut(path, error);
      throw;
    }
  }

  std::vector<LeftOutNode> nodes;
};

namespace {

// Records in the notes what the node throws.
class WatchedNode final : public DirectoryNode {
 public:
  WatchedNode(std::shared_ptr<DirectoryNode> node, std::shared_ptr<NodeNotes> notes)
      : node_(std::move(node)), notes_(std::move(notes)) {}

  const std::string& path() const override { return node_->path(); }
  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    return notes_->watch(
        path(), [&] { return node_->findRecordsOfTypes(types, attribute, value, matchType); });
  }
  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    return notes_->watch(path(),
                         [&] { return node_->findRecordNames(name, attributes, type, matchType); });
  }
  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    return notes_->watch(path(), [&] { return node_->findRecord(name, type); });
  }
  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    return node_->newRecord(name, type);
  }
  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    return node_->authenticateName(name, password, authOnly);
  }
  Array getAttribute(const std::string& attribute) const override {
    return node_->getAttribute(attribute);
  }

 private:
  const std::shared_ptr<DirectoryNode> node_;
  const std::shared_ptr<NodeNotes> notes_;
};

}  // namespace

std::string leftOutText(const std::vector<LeftOutNode>& nodes) {
  std::string text;
  for (const LeftOutNode& node : nodes) {
    text +=
        printable("Not known: what " + node.path + " alone knows of people and groups, because " +
                  "it cannot be asked: " + node.error) +
        "\n";
  }
  return text;
}

Value leftOutValue(const std::vector<LeftOutNode>& nodes) {
  Array list;
  for (const LeftOutNode& node : nodes)
    list.emplace_back(Dictionary{{"path", node.path}, {"error", node.error}});
  return list;
}

AnsweringNodes::AnsweringNodes(DirectoryService& all)
    : all_(all), notes_(std::make_shared<NodeNotes>()) {}
AnsweringNodes::~AnsweringNodes() = default;

std::unique_ptr<DirectorySession> AnsweringNodes::openLocal() {
  NodeList nodes;
  const std::shared_ptr<DirectorySession> session = all_.openLocal();
  for (const Value& value : session->searchNode()->getAttribute(schema::kSearchPath)) {
    if (value.string() == nullptr || notes_->has(*value.string())) continue;
    const std::string path = *value.string();
    nodes.push_back({path, [session, path, notes = notes_] {
                       return notes->watch(path, [&] {
                         return std::make_shared<WatchedNode>(session->findNode(path), notes);
                       });
                     }});
  }
  return makeSession(std::make_shared<const NodeList>(std::move(nodes)), notes_);
}

const std::vector<LeftOutNode>& AnsweringNodes::leftOut() const { return notes_->nodes; }

std::string AnsweringNodes::leftOutPaths() const {
  std::string text;
  for (const LeftOutNode& node : notes_->nodes) text += (text.empty() ? "" : " and ") + node.path;
  return text;
}

}  // namespace paddock::effectiveprivs
