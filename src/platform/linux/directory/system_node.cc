#include "platform/linux/directory/system_node.h"

#include <algorithm>
#include <cerrno>
#include <functional>

#include "platform/directory.h"
#include "platform/linux/directory/system_records.h"
#include "platform/linux/process/case_fold.h"
#include "platform/search_node.h"

namespace paddock {

namespace {

[[noreturn]] void refuse() { throw DirectoryError(EACCES, "the node /System is read-only"); }

void requireKnown(MatchType matchType) {
  if (matchType != MatchType::caseInsensitiveExact)
    throw DirectoryError(EINVAL, "the match type is not known");
}

bool hasValue(const SystemRecord& record, const std::string& attribute, const std::string& folded) {
  return std::any_of(record.begin(), record.end(), [&](const AttributeChange& one) {
    return one.attribute == attribute &&
           std::any_of(one.values.begin(), one.values.end(),
                       [&](const std::string& value) { return caseFold(value) == folded; });
  });
}

std::vector<SystemRecord> one(std::optional<SystemRecord> record) {
  std::vector<SystemRecord> records;
  if (record) records.push_back(std::move(*record));
  return records;
}

// The records of the type with the value among the attribute's.
std::vector<SystemRecord> matching(const std::string& type, const std::string& attribute,
                                   const std::string& value) {
  if (!isSystemType(type) || !isDirectoryText(value)) return {};
  if (isSystemKey(type, attribute)) return one(systemRecordByKey(type, attribute, value));
  if (attribute == schema::kRecordName) {
    auto exact = systemRecordByName(type, value);
    if (exact) return one(std::move(exact));
  }
  const std::string folded = caseFold(value);
  auto records = systemRecords(type);
  std::erase_if(records,
                [&](const SystemRecord& record) { return !hasValue(record, attribute, folded); });
  return records;
}

// Takes the record apart.
Dictionary answer(SystemRecord&& record, const std::function<bool(const std::string&)>& wanted) {
  std::vector<Dictionary::Entry> entries;
  entries.reserve(record.size());
  for (auto& [attribute, values] : record) {
    if (!wanted(attribute)) continue;
    Array array;
    array.reserve(values.size());
    for (std::string& value : values) array.emplace_back(std::move(value));
    entries.push_back({std::move(attribute), std::move(array)});
  }
  return *Dictionary::fromEntries(std::move(entries));  // a record has each attribute once
}

// A record as it was when it was found.
class HostRecord final : public DirectoryRecord {
 public:
  explicit HostRecord(SystemRecord record) : record_(std::move(record)) {}

  std::vector<std::string> getAllAttributes() const override {
    std::vector<std::string> names;
    for (const auto& attribute : record_) names.push_back(attribute.attribute);
    return names;
  }
  Dictionary getAllAttributesAndValues() const override {
    return answer(SystemRecord(record_), [](const std::string&) { return true; });
  }
  Array getAttribute(const std::string& attribute) const override {
    for (const auto& candidate : record_)
      if (candidate.attribute == attribute) return valueArray(candidate.values);
    return {};
  }
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override {
    for (const auto& candidate : record_)
      if (candidate.attribute == attribute) return candidate.values.front();
    return std::nullopt;
  }

  void setAttribute(const std::string&, const std::string&) override { refuse(); }
  void setAttribute(const std::string&, const Array&) override { refuse(); }
  void removeAttribute(const std::string&) override { refuse(); }
  void removeRecord() override { refuse(); }
  void setAttributesAndValues(const Dictionary&) override { refuse(); }

 private:
  SystemRecord record_;
};

class SystemNode final : public DirectoryNode {
 public:
  SystemNode(std::optional<PamOptions> pam, std::shared_ptr<NodeObserver> observer)
      : pam_(std::move(pam)), observer_(std::move(observer)) {}

  const std::string& path() const override { return path_; }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    requireKnown(matchType);
    Array answers;
    for (const char* type : {schema::kUsers, schema::kGroups}) {
      if (std::find(types.begin(), types.end(), type) == types.end()) continue;
      for (SystemRecord& record : matching(type, attribute, value))
        answers.emplace_back(answer(std::move(record), [](const std::string&) { return true; }));
    }
    return answers;
  }

  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    requireKnown(matchType);
    if (!isSystemType(type)) return {};
    const auto has = [&](const std::string& attribute) {
      return std::find(attributes.begin(), attributes.end(), attribute) != attributes.end();
    };
    const bool all = has(kAttributesAll);
    Array answers;
    for (SystemRecord& record :
         name == kRecordsAll ? systemRecords(type) : matching(type, schema::kRecordName, name))
      answers.emplace_back(answer(
          std::move(record), [&](const std::string& attribute) { return all || has(attribute); }));
    return answers;
  }

  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    auto records = matching(type, schema::kRecordName, name);
    if (records.empty()) return nullptr;
    return std::make_unique<HostRecord>(std::move(records.front()));
  }

  std::unique_ptr<DirectoryRecord> newRecord(const std::string&, const std::string&) override {
    refuse();
  }

  // No state is kept: this node is read-only.
  Status authenticateName(const std::string& name, const std::string& password, bool) override {
    if (password.empty()) return EACCES;
    if (!pam_) throw DirectoryError(ENOTSUP, "authentication on /System is switched off");
    return checkPassword(observer_, path_, name,
                         [&] { return authenticateWithPam(*pam_, name, password); });
  }

  Array getAttribute(const std::string& attribute) const override {
    if (attribute == schema::kReadOnlyNode) return {schema::kReadOnly};
    return {};
  }

 private:
  const std::string path_ = kSystemNodePath;
  const std::optional<PamOptions> pam_;
  const std::shared_ptr<NodeObserver> observer_;
};

}  // namespace

std::shared_ptr<DirectoryNode> makeSystemNode(std::optional<PamOptions> pam,
                                              std::shared_ptr<NodeObserver> observer) {
  return std::make_shared<SystemNode>(std::move(pam), std::move(observer));
}

}  // namespace paddock
