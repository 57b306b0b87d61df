#include "platform/testing/forwarding_directory.h"

#include <utility>

namespace paddock {

namespace {

// The number that the call is answered with; 0 when it is to be carried out.
int ask(CallRules& rules, const char* name, ServiceCall call) {
  call.raises = true;
  return rules.before(name, std::move(call));
}

void mayFail(CallRules& rules, const char* name, ServiceCall call) {
  const int number = ask(rules, name, std::move(call));
  if (number != 0) throw DirectoryError(number, std::string("injected failure of ") + name);
}

class ForwardingRecord final : public DirectoryRecord {
 public:
  ForwardingRecord(std::unique_ptr<DirectoryRecord> wrapped, std::string name, CallRules& rules)
      : wrapped_(std::move(wrapped)), name_(std::move(name)), rules_(rules) {}

  std::vector<std::string> getAllAttributes() const override {
    mayFail(rules_, "record.getAllAttributes", {"getAllAttributes", name_, ""});
    return wrapped_->getAllAttributes();
  }
  Dictionary getAllAttributesAndValues() const override {
    mayFail(rules_, "record.getAllAttributesAndValues", {"getAllAttributesAndValues", name_, ""});
    return wrapped_->getAllAttributesAndValues();
  }
  Array getAttribute(const std::string& attribute) const override {
    mayFail(rules_, "record.getAttribute", {"getAttribute", name_, attribute});
    return wrapped_->getAttribute(attribute);
  }
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override {
    mayFail(rules_, "record.getAttributeFirstValue", {"getAttributeFirstValue", name_, attribute});
    return wrapped_->getAttributeFirstValue(attribute);
  }
  void setAttribute(const std::string& attribute, const std::string& value) override {
    mayFail(rules_, "record.setAttribute", {"setAttribute", name_, attribute});
    wrapped_->setAttribute(attribute, value);
  }
  void setAttribute(const std::string& attribute, const Array& values) override {
    mayFail(rules_, "record.setAttribute", {"setAttribute", name_, attribute});
    wrapped_->setAttribute(attribute, values);
  }
  void removeAttribute(const std::string& attribute) override {
    mayFail(rules_, "record.removeAttribute", {"removeAttribute", name_, attribute});
    wrapped_->removeAttribute(attribute);
  }
  void removeRecord() override {
    mayFail(rules_, "record.removeRecord", {"removeRecord", name_, ""});
    wrapped_->removeRecord();
  }
  void setAttributesAndValues(const Dictionary& attributes) override {
    mayFail(rules_, "record.setAttributesAndValues", {"setAttributesAndValues", name_, ""});
    wrapped_->setAttributesAndValues(attributes);
  }

 private:
  std::unique_ptr<DirectoryRecord> wrapped_;
  std::string name_;
  CallRules& rules_;
};

class ForwardingNode final : public DirectoryNode {
 public:
  ForwardingNode(std::shared_ptr<DirectoryNode> wrapped, CallRules& rules)
      : wrapped_(std::move(wrapped)), rules_(rules) {}

  const std::string& path() const override { return wrapped_->path(); }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    mayFail(rules_, "node.findRecordsOfTypes", {"findRecordsOfTypes", value, attribute});
    return wrapped_->findRecordsOfTypes(types, attribute, value, matchType);
  }
  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    mayFail(rules_, "node.findRecordNames", {"findRecordNames", name, type});
    return wrapped_->findRecordNames(name, attributes, type, matchType);
  }
  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    mayFail(rules_, "node.findRecord", {"findRecord", name, type});
    return wrap(wrapped_->findRecord(name, type), name);
  }
  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    mayFail(rules_, "node.newRecord", {"newRecord", name, type});
    return wrap(wrapped_->newRecord(name, type), name);
  }
  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    const Status status = ask(rules_, "node.authenticateName",
                              {"authenticateName", name, authOnly ? "authOnly" : "keep"});
    return status != 0 ? status : wrapped_->authenticateName(name, password, authOnly);
  }
  Array getAttribute(const std::string& attribute) const override {
    mayFail(rules_, "node.getAttribute", {"getNodeAttribute", path(), attribute});
    return wrapped_->getAttribute(attribute);
  }

 private:
  std::unique_ptr<DirectoryRecord> wrap(std::unique_ptr<DirectoryRecord> record,
                                        const std::string& name) const {
    if (!record) return nullptr;
    return std::make_unique<ForwardingRecord>(std::move(record), name, rules_);
  }

  std::shared_ptr<DirectoryNode> wrapped_;
  CallRules& rules_;
};

class ForwardingSession final : public DirectorySession {
 public:
  ForwardingSession(std::unique_ptr<DirectorySession> wrapped, CallRules& rules)
      : wrapped_(std::move(wrapped)), rules_(rules) {}

  std::shared_ptr<DirectoryNode> localNode() override {
    mayFail(rules_, "session.localNode", {"localNode", "", ""});
    return wrap(wrapped_->localNode());
  }
  std::shared_ptr<DirectoryNode> searchNode() override {
    mayFail(rules_, "session.searchNode", {"searchNode", "", ""});
    return wrap(wrapped_->searchNode());
  }
  std::shared_ptr<DirectoryNode> findNode(const std::string& path) override {
    mayFail(rules_, "session.findNode", {"findNode", path, ""});
    return wrap(wrapped_->findNode(path));
  }

 private:
  std::shared_ptr<DirectoryNode> wrap(std::shared_ptr<DirectoryNode> node) const {
    if (!node) return nullptr;
    return std::make_shared<ForwardingNode>(std::move(node), rules_);
  }

  std::unique_ptr<DirectorySession> wrapped_;
  CallRules& rules_;
};

}  // namespace

std::unique_ptr<DirectorySession> ForwardingDirectory::openLocal() {
  mayFail(rules(), "directory.openLocal", {"openLocal", "", ""});
  auto session = wrapped().openLocal();
  if (!session) return nullptr;
  return std::make_unique<ForwardingSession>(std::move(session), rules());
}

}  // namespace paddock
