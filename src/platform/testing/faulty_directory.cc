#include "platform/testing/faulty_directory.h"

#include <utility>

namespace paddock {

namespace {

void mayFail(FaultPlan& plan, std::string_view call) {
  if (!plan.fails(call)) return;
  const std::string description = "injected failure of " + std::string(call);
  if (plan.error()) throw DirectoryError(*plan.error(), description);
  throw DirectoryError(description);
}

class FaultyRecord : public DirectoryRecord {
 public:
  FaultyRecord(std::unique_ptr<DirectoryRecord> wrapped, FaultPlan& plan)
      : wrapped_(std::move(wrapped)), plan_(plan) {}

  std::vector<std::string> getAllAttributes() const override {
    mayFail(plan_, "record.getAllAttributes");
    return wrapped_->getAllAttributes();
  }
  Dictionary getAllAttributesAndValues() const override {
    mayFail(plan_, "record.getAllAttributesAndValues");
    return wrapped_->getAllAttributesAndValues();
  }
  Array getAttribute(const std::string& attribute) const override {
    mayFail(plan_, "record.getAttribute");
    return wrapped_->getAttribute(attribute);
  }
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override {
    mayFail(plan_, "record.getAttributeFirstValue");
    return wrapped_->getAttributeFirstValue(attribute);
  }
  void setAttribute(const std::string& attribute, const std::string& value) override {
    mayFail(plan_, "record.setAttribute");
    wrapped_->setAttribute(attribute, value);
  }
  void setAttribute(const std::string& attribute, const Array& values) override {
    mayFail(plan_, "record.setAttribute");
    wrapped_->setAttribute(attribute, values);
  }
  void removeAttribute(const std::string& attribute) override {
    mayFail(plan_, "record.removeAttribute");
    wrapped_->removeAttribute(attribute);
  }
  void removeRecord() override {
    mayFail(plan_, "record.removeRecord");
    wrapped_->removeRecord();
  }
  void setAttributesAndValues(const Dictionary& attributes) override {
    mayFail(plan_, "record.setAttributesAndValues");
    wrapped_->setAttributesAndValues(attributes);
  }

 private:
  std::unique_ptr<DirectoryRecord> wrapped_;
  FaultPlan& plan_;
};

std::unique_ptr<DirectoryRecord> wrapRecord(std::unique_ptr<DirectoryRecord> record,
                                            FaultPlan& plan) {
  if (!record) return nullptr;
  return std::make_unique<FaultyRecord>(std::move(record), plan);
}

class FaultyNode : public DirectoryNode {
 public:
  FaultyNode(std::shared_ptr<DirectoryNode> wrapped, FaultPlan& plan)
      : wrapped_(std::move(wrapped)), plan_(plan) {}

  const std::string& path() const override { return wrapped_->path(); }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    mayFail(plan_, "node.findRecordsOfTypes");
    return wrapped_->findRecordsOfTypes(types, attribute, value, matchType);
  }
  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    mayFail(plan_, "node.findRecordNames");
    return wrapped_->findRecordNames(name, attributes, type, matchType);
  }
  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    mayFail(plan_, "node.findRecord");
    return wrapRecord(wrapped_->findRecord(name, type), plan_);
  }
  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    mayFail(plan_, "node.newRecord");
    return wrapRecord(wrapped_->newRecord(name, type), plan_);
  }
  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    mayFail(plan_, "node.authenticateName");
    return wrapped_->authenticateName(name, password, authOnly);
  }
  Array getAttribute(const std::string& attribute) const override {
    mayFail(plan_, "node.getAttribute");
    return wrapped_->getAttribute(attribute);
  }

 private:
  std::shared_ptr<DirectoryNode> wrapped_;
  FaultPlan& plan_;
};

std::shared_ptr<DirectoryNode> wrapNode(std::shared_ptr<DirectoryNode> node, FaultPlan& plan) {
  if (!node) return nullptr;
  return std::make_shared<FaultyNode>(std::move(node), plan);
}

class FaultySession : public DirectorySession {
 public:
  FaultySession(std::unique_ptr<DirectorySession> wrapped, FaultPlan& plan)
      : wrapped_(std::move(wrapped)), plan_(plan) {}

  std::shared_ptr<DirectoryNode> localNode() override {
    mayFail(plan_, "session.localNode");
    return wrapNode(wrapped_->localNode(), plan_);
  }
  std::shared_ptr<DirectoryNode> searchNode() override {
    mayFail(plan_, "session.searchNode");
    return wrapNode(wrapped_->searchNode(), plan_);
  }
  std::shared_ptr<DirectoryNode> findNode(const std::string& path) override {
    mayFail(plan_, "session.findNode");
    return wrapNode(wrapped_->findNode(path), plan_);
  }

 private:
  std::unique_ptr<DirectorySession> wrapped_;
  FaultPlan& plan_;
};

}  // namespace

std::unique_ptr<DirectorySession> FaultyDirectory::openLocal() {
  mayFail(plan_, "directory.openLocal");
  auto session = wrapped_.openLocal();
  if (!session) return nullptr;
  return std::make_unique<FaultySession>(std::move(session), plan_);
}

}  // namespace paddock
