#include "platform/search_node.h"

#include <cerrno>
#include <iterator>

#include "platform/directory_schema.h"

namespace paddock {

namespace {

void append(Array& answers, Array more) {
  answers.insert(answers.end(), std::make_move_iterator(more.begin()),
                 std::make_move_iterator(more.end()));
}

class SearchNode final : public DirectoryNode {
 public:
  explicit SearchNode(std::shared_ptr<const NodeList> nodes) : nodes_(std::move(nodes)) {}

  const std::string& path() const override { return path_; }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    Array answers;
    for (const NodeFactory& factory : *nodes_)
      append(answers, factory.open()->findRecordsOfTypes(types, attribute, value, matchType));
    return answers;
  }

  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    Array answers;
    for (const NodeFactory& factory : *nodes_)
      append(answers, factory.open()->findRecordNames(name, attributes, type, matchType));
    return answers;
  }

  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    for (const NodeFactory& factory : *nodes_)
      if (auto record = factory.open()->findRecord(name, type)) return record;
    return nullptr;
  }

  std::unique_ptr<DirectoryRecord> newRecord(const std::string&, const std::string&) override {
    throw DirectoryError(EACCES, "the node /Search is read-only");
  }

  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    for (const NodeFactory& factory : *nodes_) {
      const auto node = factory.open();
      if (node->findRecord(name, schema::kUsers))
        return node->authenticateName(name, password, authOnly);
    }
    return EACCES;
  }

  Array getAttribute(const std::string& attribute) const override {
    if (attribute == schema::kReadOnlyNode) return {schema::kReadOnly};
    if (attribute != schema::kSearchPath) return {};
    Array paths;
    for (const NodeFactory& factory : *nodes_) paths.emplace_back(factory.path);
    return paths;
  }

 private:
  std::string path_ = kSearchNodePath;
  std::shared_ptr<const NodeList> nodes_;
};

class Session final : public DirectorySession {
 public:
  explicit Session(std::shared_ptr<const NodeList> nodes) : nodes_(std::move(nodes)) {}

  std::shared_ptr<DirectoryNode> localNode() override { return openNode(nodes_, kLocalNodePath); }
  std::shared_ptr<DirectoryNode> searchNode() override { return makeSearchNode(nodes_); }
  std::shared_ptr<DirectoryNode> findNode(const std::string& path) override {
    return openNode(nodes_, path);
  }

 private:
  std::shared_ptr<const NodeList> nodes_;
};

}  // namespace

std::shared_ptr<DirectoryNode> openNode(const std::shared_ptr<const NodeList>& nodes,
                                        const std::string& path) {
  for (const NodeFactory& factory : *nodes)
    if (factory.path == path) return factory.open();
  if (path == kSearchNodePath) return makeSearchNode(nodes);
  throw DirectoryError(ENOENT, "there is no directory node \"" + path + "\"");
}

std::shared_ptr<DirectoryNode> makeSearchNode(std::shared_ptr<const NodeList> nodes) {
  return std::make_shared<SearchNode>(std::move(nodes));
}

std::unique_ptr<DirectorySession> makeSession(std::shared_ptr<const NodeList> nodes) {
  return std::make_unique<Session>(std::move(nodes));
}

}  // namespace paddock
