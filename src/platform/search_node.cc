#include "platform/search_node.h"

#include <cerrno>
#include <iterator>
#include <optional>
#include <utility>

#include "platform/directory.h"

namespace paddock {

namespace {

void append(Array& answers, Array more) {
  answers.insert(answers.end(), std::make_move_iterator(more.begin()),
                 std::make_move_iterator(more.end()));
}

class SearchNode final : public DirectoryNode {
 public:
  SearchNode(std::shared_ptr<const NodeList> nodes, std::shared_ptr<NodeObserver> observer)
      : nodes_(std::move(nodes)), observer_(std::move(observer)) {}

  const std::string& path() const override { return path_; }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    Array answers;
    askEach([&](DirectoryNode& node) {
      append(answers, node.findRecordsOfTypes(types, attribute, value, matchType));
      return false;
    });
    return answers;
  }

  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    Array answers;
    askEach([&](DirectoryNode& node) {
      append(answers, node.findRecordNames(name, attributes, type, matchType));
      return false;
    });
    return answers;
  }

  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    std::unique_ptr<DirectoryRecord> record;
    askEach([&](DirectoryNode& node) {
      record = node.findRecord(name, type);
      return record != nullptr;
    });
    return record;
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
  // Asks the nodes in their order, until ask(DirectoryNode&) says that it is enough.
  template <typename Ask>
  void askEach(Ask&& ask) {
    std::optional<DirectoryError> first;
    bool anyAnswered = false;
    for (const NodeFactory& factory : *nodes_) {
      try {
        const bool enough = ask(*factory.open());
        anyAnswered = true;
        if (observer_) observer_->answered(factory.path);
        if (enough) return;
      } catch (const DirectoryError& error) {
        if (!first) first = error;
        if (observer_) observer_->leftOut(factory.path, error);
      }
    }
    if (first && !anyAnswered) throw DirectoryError(*first);
  }

  std::string path_ = kSearchNodePath;
  std::shared_ptr<const NodeList> nodes_;
  const std::shared_ptr<NodeObserver> observer_;
};

class Session final : public DirectorySession {
 public:
  Session(std::shared_ptr<const NodeList> nodes, std::shared_ptr<NodeObserver> observer)
      : nodes_(std::move(nodes)), observer_(std::move(observer)) {}

  std::shared_ptr<DirectoryNode> localNode() override { return openNode(nodes_, kLocalNodePath); }
  std::shared_ptr<DirectoryNode> searchNode() override { return makeSearchNode(nodes_, observer_); }
  std::shared_ptr<DirectoryNode> findNode(const std::string& path) override {
    return openNode(nodes_, path, observer_);
  }

 private:
  std::shared_ptr<const NodeList> nodes_;
  std::shared_ptr<NodeObserver> observer_;
};

}  // namespace

Status NodeObserver::checkPassword(const std::string&, const std::string&,
                                   const std::function<Status()>& check) {
  return check();
}

Status checkPassword(const std::shared_ptr<NodeObserver>& observer, const std::string& path,
                     const std::string& name, const std::function<Status()>& check) {
  return observer ? observer->checkPassword(path, name, check) : check();
}

std::shared_ptr<DirectoryNode> openNode(const std::shared_ptr<const NodeList>& nodes,
                                        const std::string& path,
                                        const std::shared_ptr<NodeObserver>& observer) {
  for (const NodeFactory& factory : *nodes)
    if (factory.path == path) return factory.open();
  if (path == kSearchNodePath) return makeSearchNode(nodes, observer);
  throw DirectoryError(ENOENT, "there is no directory node \"" + path + "\"");
}

std::shared_ptr<DirectoryNode> makeSearchNode(std::shared_ptr<const NodeList> nodes,
                                              std::shared_ptr<NodeObserver> observer) {
  return std::make_shared<SearchNode>(std::move(nodes), std::move(observer));
}

std::unique_ptr<DirectorySession> makeSession(std::shared_ptr<const NodeList> nodes,
                                              std::shared_ptr<NodeObserver> observer) {
  return std::make_unique<Session>(std::move(nodes), std::move(observer));
}

}  // namespace paddock
