#include "platform/testing/in_memory_directory.h"

#include <atomic>
#include <cerrno>

#include "base/mutex.h"
#include "platform/directory.h"
#include "platform/search_node.h"
#include "platform/testing/memory_node.h"

namespace paddock {

using memory::NodeData;

struct InMemoryDirectory::State {
  State(CaseFold fold_, std::string adminGroup_)
      : fold(fold_), adminGroup(std::move(adminGroup_)) {}

  const CaseFold fold;
  const std::string adminGroup;
  std::atomic<int> openSessions = 0;
  Mutex mutex;  // guards `nodes`, not what they hold
  std::vector<std::shared_ptr<NodeData>> nodes PADDOCK_GUARDED_BY(mutex);

  std::shared_ptr<NodeData> node(const std::string& path) {
    const MutexLock lock(mutex);
    for (const auto& node : nodes)
      if (node->path == path) return node;
    throw DirectoryError(ENOENT, "there is no directory node \"" + path + "\"");
  }

  std::shared_ptr<const NodeList> list() {
    const MutexLock lock(mutex);
    NodeList list;
    for (const auto& node : nodes)
      list.push_back({node->path, [node] { return memory::open(node); }});
    return std::make_shared<const NodeList>(std::move(list));
  }
};

namespace {

// Forwards to a session over the list, and is counted.
class CountedSession final : public DirectorySession {
 public:
  CountedSession(std::unique_ptr<DirectorySession> session, std::shared_ptr<std::atomic<int>> count)
      : session_(std::move(session)), count_(std::move(count)) {
    ++*count_;
  }
  CountedSession(const CountedSession&) = delete;
  CountedSession& operator=(const CountedSession&) = delete;
  ~CountedSession() override { --*count_; }

  std::shared_ptr<DirectoryNode> localNode() override { return session_->localNode(); }
  std::shared_ptr<DirectoryNode> searchNode() override { return session_->searchNode(); }
  std::shared_ptr<DirectoryNode> findNode(const std::string& path) override {
    return session_->findNode(path);
  }

 private:
  std::unique_ptr<DirectorySession> session_;
  std::shared_ptr<std::atomic<int>> count_;
};

}  // namespace

InMemoryDirectory::InMemoryDirectory(CaseFold fold, std::string adminGroup)
    : state_(std::make_shared<State>(fold, std::move(adminGroup))) {
  addNode(kLocalNodePath, schema::kReadWrite);
}

InMemoryDirectory::~InMemoryDirectory() = default;

std::unique_ptr<DirectorySession> InMemoryDirectory::openLocal() {
  return std::make_unique<CountedSession>(
      makeSession(state_->list()),
      std::shared_ptr<std::atomic<int>>(state_, &state_->openSessions));
}

int InMemoryDirectory::openSessions() const { return state_->openSessions; }

void InMemoryDirectory::addNode(const std::string& path,
                                const std::optional<std::string>& readOnlyNode) {
  auto node = std::make_shared<NodeData>(path, state_->fold, state_->adminGroup);
  {
    const MutexLock lock(node->mutex);
    node->readOnlyNode = readOnlyNode;
  }
  const MutexLock lock(state_->mutex);
  state_->nodes.push_back(std::move(node));
}

void InMemoryDirectory::setReadOnlyNode(const std::string& path,
                                        const std::optional<std::string>& readOnlyNode) {
  const auto node = state_->node(path);
  const MutexLock lock(node->mutex);
  node->readOnlyNode = readOnlyNode;
}

void InMemoryDirectory::failOpening(const std::string& path, Status status) {
  const auto node = state_->node(path);
  const MutexLock lock(node->mutex);
  node->openStatus = status;
}

void InMemoryDirectory::addRecord(const std::string& path, const std::string& type,
                                  const std::string& name, const Dictionary& attributes) {
  const auto changes = attributeChanges(attributes);
  const auto node = state_->node(path);
  const MutexLock lock(node->mutex);
  memory::apply(*node, *memory::create(*node, name, type), changes);
}

void InMemoryDirectory::setPassword(const std::string& path, const std::string& user,
                                    const std::string& password) {
  const auto node = state_->node(path);
  const MutexLock lock(node->mutex);
  auto record = memory::find(*node, user, schema::kUsers);
  if (!record) throw DirectoryError(ENOENT, "there is no user \"" + user + "\"");
  node->passwords[std::move(record)] = password;
}

}  // namespace paddock
