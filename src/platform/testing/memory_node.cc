#include "platform/testing/memory_node.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>

#include "platform/directory.h"

namespace paddock::memory {

namespace {

// Where an attribute of the record stands, or null.
const AttributeChange* attributeOf(const Record& record, const std::string& attribute) {
  for (const AttributeChange& candidate : record.attributes)
    if (candidate.attribute == attribute) return &candidate;
  return nullptr;
}

bool hasValue(const NodeData& node, const Record& record, const std::string& attribute,
              const std::string& value) {
  const std::string wanted = node.fold(value);
  if (attribute == schema::kRecordType) return node.fold(record.type) == wanted;
  const AttributeChange* found = attributeOf(record, attribute);
  return found != nullptr &&
         std::any_of(found->values.begin(), found->values.end(),
                     [&](const std::string& candidate) { return node.fold(candidate) == wanted; });
}

// Everything that the record has: its type stands behind its names.
Attributes everything(const Record& record) {
  Attributes all = record.attributes;
  all.insert(all.begin() + 1, {schema::kRecordType, {record.type}});
  return all;
}

Dictionary answer(const Record& record, const std::function<bool(const std::string&)>& wanted) {
  Dictionary dictionary;
  for (const auto& [attribute, values] : everything(record))
    if (wanted(attribute)) dictionary.set(attribute, valueArray(values));
  return dictionary;
}

void requireKnown(MatchType matchType) {
  if (matchType != MatchType::caseInsensitiveExact)
    throw DirectoryError(EINVAL, "the match type is not known");
}

void requireFreeName(const NodeData& node, const std::string& type, const std::string& name,
                     const Record* owner) PADDOCK_REQUIRES(node.mutex) {
  const auto other = find(node, name, type);
  if (other && other.get() != owner)
    throw DirectoryError(EEXIST, "another record of " + type + " has the name \"" + name + "\"");
}

// Throws when the change cannot be made.
void check(const NodeData& node, const Record& record, const AttributeChange& change)
    PADDOCK_REQUIRES(node.mutex) {
  if (change.attribute == schema::kRecordName)
    for (const std::string& name : change.values) requireFreeName(node, record.type, name, &record);
  if (change.attribute == schema::kRecordType && !change.values.empty() &&
      change.values != std::vector<std::string>{record.type})
    throw DirectoryError(EINVAL, "a record's type cannot be changed");
}

void change(Record& record, const AttributeChange& change) {
  if (change.attribute == schema::kRecordType) return;
  const auto found =
      std::find_if(record.attributes.begin(), record.attributes.end(),
                   [&](const AttributeChange& one) { return one.attribute == change.attribute; });
  if (change.values.empty() && change.attribute == schema::kRecordName) {
    found->values.resize(1);
  } else if (change.values.empty()) {
    if (found != record.attributes.end()) record.attributes.erase(found);
  } else if (found != record.attributes.end()) {
    found->values = change.values;
  } else {
    record.attributes.push_back(change);
  }
}

// Authentication state shared by a node object and the records that it returned.
struct Access {
  explicit Access(std::shared_ptr<NodeData> data_) : data(std::move(data_)) {}
  const std::shared_ptr<NodeData> data;
  std::atomic<bool> refused = false;  // an authenticated user who may not write

  void requireWritable() const PADDOCK_REQUIRES(data->mutex) {
    if (data->readOnlyNode != schema::kReadWrite)
      throw DirectoryError(EACCES, "the node " + data->path + " is read-only");
    if (refused) throw DirectoryError(EACCES, "the user may not change " + data->path);
  }
};

class MemoryRecord final : public DirectoryRecord {
 public:
  MemoryRecord(std::shared_ptr<Access> access, std::shared_ptr<Record> record)
      : access_(std::move(access)), record_(std::move(record)) {}

  std::vector<std::string> getAllAttributes() const override {
    const MutexLock lock(access_->data->mutex);
    std::vector<std::string> names;
    for (const auto& attribute : everything(present())) names.push_back(attribute.attribute);
    return names;
  }

  Dictionary getAllAttributesAndValues() const override {
    const MutexLock lock(access_->data->mutex);
    return answer(present(), [](const std::string&) { return true; });
  }

  Array getAttribute(const std::string& attribute) const override {
    const MutexLock lock(access_->data->mutex);
    for (const auto& candidate : everything(present()))
      if (candidate.attribute == attribute) return valueArray(candidate.values);
    return {};
  }

  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override {
    const Array values = getAttribute(attribute);
    if (values.empty()) return std::nullopt;
    return *values.front().string();
  }

  void setAttribute(const std::string& attribute, const std::string& value) override {
    apply({{attribute, directoryValues(attribute, Value(value))}});
  }
  void setAttribute(const std::string& attribute, const Array& values) override {
    apply({{attribute, directoryValues(attribute, values)}});
  }
  void removeAttribute(const std::string& attribute) override { apply({{attribute, {}}}); }
  void setAttributesAndValues(const Dictionary& attributes) override {
    apply(attributeChanges(attributes));
  }

  void removeRecord() override {
    const MutexLock lock(access_->data->mutex);
    access_->requireWritable();
    present();
    record_->removed = true;
    access_->data->passwords.erase(record_);
    std::erase(access_->data->records, record_);
  }

 private:
  Record& present() const PADDOCK_REQUIRES(access_->data->mutex) {
    if (record_->removed)
      throw DirectoryError(ENOENT, "the record is gone from " + access_->data->path);
    return *record_;
  }

  void apply(const std::vector<AttributeChange>& changes) {
    const MutexLock lock(access_->data->mutex);
    access_->requireWritable();
    memory::apply(*access_->data, present(), changes);
  }

  std::shared_ptr<Access> access_;
  std::shared_ptr<Record> record_;
};

bool mayWrite(const NodeData& node, const Record& user) PADDOCK_REQUIRES(node.mutex) {
  const std::vector<std::string>& names = user.attributes.front().values;
  if (names.front() == "root" || hasValue(node, user, schema::kUniqueID, "0")) return true;
  const auto group = find(node, node.adminGroup, schema::kGroups);
  return group && hasValue(node, *group, schema::kGroupMembership, names.front());
}

class MemoryNode final : public DirectoryNode {
 public:
  explicit MemoryNode(const std::shared_ptr<NodeData>& data)
      : access_(std::make_shared<Access>(data)) {}

  const std::string& path() const override { return data().path; }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    requireKnown(matchType);
    if (!isDirectoryText(value)) return {};
    const MutexLock lock(data().mutex);
    Array answers;
    for (const auto& record : data().records) {
      if (std::find(types.begin(), types.end(), record->type) == types.end()) continue;
      if (!hasValue(data(), *record, attribute, value)) continue;
      answers.emplace_back(answer(*record, [](const std::string&) { return true; }));
    }
    return answers;
  }

  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    requireKnown(matchType);
    const auto has = [&](const std::string& one) {
      return std::find(attributes.begin(), attributes.end(), one) != attributes.end();
    };
    const bool all = has(kAttributesAll);
    const MutexLock lock(data().mutex);
    Array answers;
    for (const auto& record : data().records) {
      if (record->type != type) continue;
      if (name != kRecordsAll && !hasValue(data(), *record, schema::kRecordName, name)) continue;
      answers.emplace_back(
          answer(*record, [&](const std::string& one) { return all || has(one); }));
    }
    return answers;
  }

  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    const MutexLock lock(data().mutex);
    auto record = find(data(), name, type);
    if (!record) return nullptr;
    return std::make_unique<MemoryRecord>(access_, std::move(record));
  }

  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    const MutexLock lock(access_->data->mutex);
    access_->requireWritable();
    return std::make_unique<MemoryRecord>(access_, create(*access_->data, name, type));
  }

  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    const MutexLock lock(data().mutex);
    const auto user = find(data(), name, schema::kUsers);
    if (!user || password.empty()) return EACCES;
    const auto known = data().passwords.find(user);
    if (known == data().passwords.end() || known->second != password) return EACCES;
    if (!authOnly) access_->refused = !mayWrite(data(), *user);
    return 0;
  }

  Array getAttribute(const std::string& attribute) const override {
    const MutexLock lock(data().mutex);
    if (attribute != schema::kReadOnlyNode || !data().readOnlyNode) return {};
    return {*data().readOnlyNode};
  }

 private:
  NodeData& data() const { return *access_->data; }

  std::shared_ptr<Access> access_;
};

}  // namespace

std::shared_ptr<Record> find(const NodeData& node, const std::string& name,
                             const std::string& type) {
  for (const auto& record : node.records)
    if (record->type == type && hasValue(node, *record, schema::kRecordName, name)) return record;
  return nullptr;
}

std::shared_ptr<Record> create(NodeData& node, const std::string& name, const std::string& type) {
  requireDirectoryName(name, "a record name");
  requireDirectoryName(type, "a record type");
  requireFreeName(node, type, name, nullptr);
  auto record = std::make_shared<Record>(Record{type, {{schema::kRecordName, {name}}}});
  node.records.push_back(record);
  return record;
}

void apply(NodeData& node, Record& record, const std::vector<AttributeChange>& changes) {
  for (const AttributeChange& one : changes) check(node, record, one);
  for (const AttributeChange& one : changes) change(record, one);
}

std::shared_ptr<DirectoryNode> open(const std::shared_ptr<NodeData>& data) {
  const MutexLock lock(data->mutex);
  if (data->openStatus != 0)
    throw DirectoryError(data->openStatus, "the node " + data->path + " cannot be opened");
  return std::make_shared<MemoryNode>(data);
}

}  // namespace paddock::memory
