#include "platform/linux/ldap/ldap_node.h"

#include <algorithm>
#include <cerrno>

#include "platform/directory.h"
#include "platform/linux/ldap/ldap_access.h"
#include "platform/linux/ldap/ldap_accounts.h"
#include "platform/linux/ldap/ldap_records.h"
#include "platform/linux/ldap/ldap_text.h"

namespace paddock {

namespace {

void requireKnown(MatchType matchType) {
  if (matchType != MatchType::caseInsensitiveExact)
    throw DirectoryError(EINVAL, "the match type is not known");
}

[[noreturn]] void refuseAccountChange(const LdapOptions& options) {
  throw DirectoryError(EACCES, "users and groups of " + options.path() + " are read-only");
}

Dictionary dictionaryOf(const std::vector<AttributeChange>& attributes) {
  std::vector<Dictionary::Entry> entries;
  entries.reserve(attributes.size());
  for (const auto& [attribute, values] : attributes)
    entries.push_back({attribute, valueArray(values)});
  return Dictionary::fromEntries(std::move(entries)).value();  // no attribute is there twice
}

// A record whose attributes `read` gives.
class ListedRecord : public DirectoryRecord {
 public:
  std::vector<std::string> getAllAttributes() const override {
    std::vector<std::string> names;
    for (AttributeChange& one : read()) names.push_back(std::move(one.attribute));
    return names;
  }
  Dictionary getAllAttributesAndValues() const override { return dictionaryOf(read()); }
  Array getAttribute(const std::string& attribute) const override {
    for (const AttributeChange& one : read())
      if (one.attribute == attribute) return valueArray(one.values);
    return {};
  }
  std::optional<std::string> getAttributeFirstValue(const std::string& attribute) const override {
    for (AttributeChange& one : read())
      if (one.attribute == attribute) return std::move(one.values.front());
    return std::nullopt;
  }

 protected:
  virtual std::vector<AttributeChange> read() const = 0;
};

class LdapRecord final : public ListedRecord {
 public:
  LdapRecord(std::shared_ptr<LdapAccess> access, LdapRecordState known)
      : access_(std::move(access)), known_(std::move(known)) {}

  void setAttribute(const std::string& attribute, const std::string& value) override {
    change({{attribute, directoryValues(attribute, Value(value))}});
  }
  void setAttribute(const std::string& attribute, const Array& values) override {
    change({{attribute, directoryValues(attribute, values)}});
  }
  void removeAttribute(const std::string& attribute) override { change({{attribute, {}}}); }
  void setAttributesAndValues(const Dictionary& attributes) override {
    change(attributeChanges(attributes));
  }
  void removeRecord() override {
    const LdapAccess::Operation operation(*access_);
    access_->change([this] { LdapRecords(*access_).remove(known_); });
  }

 private:
  std::vector<AttributeChange> read() const override {
    const LdapAccess::Operation operation(*access_);
    return attributesOf(LdapRecords(*access_).load(known_));
  }
  void change(const std::vector<AttributeChange>& changes) {
    const LdapAccess::Operation operation(*access_);
    known_ = access_->change([&] { return LdapRecords(*access_).change(known_, changes); });
  }

  std::shared_ptr<LdapAccess> access_;
  LdapRecordState known_;
};

// A user or group as it was when it was found.
class LdapAccountRecord final : public ListedRecord {
 public:
  LdapAccountRecord(std::shared_ptr<LdapAccess> access, LdapAccount account)
      : access_(std::move(access)), account_(std::move(account)) {}

  void setAttribute(const std::string&, const std::string&) override { refuse(); }
  void setAttribute(const std::string&, const Array&) override { refuse(); }
  void removeAttribute(const std::string&) override { refuse(); }
  void setAttributesAndValues(const Dictionary&) override { refuse(); }
  void removeRecord() override { refuse(); }

 private:
  std::vector<AttributeChange> read() const override { return account_.attributes; }
  [[noreturn]] void refuse() const { refuseAccountChange(access_->options()); }

  std::shared_ptr<LdapAccess> access_;
  LdapAccount account_;
};

// Answers of both kinds, to be sorted.
struct Found {
  std::string order;
  std::vector<AttributeChange> attributes;
};

Array sortedAnswers(std::vector<Found> found) {
  std::stable_sort(found.begin(), found.end(),
                   [](const Found& left, const Found& right) { return left.order < right.order; });
  Array answers;
  answers.reserve(found.size());
  for (const Found& one : found) answers.emplace_back(dictionaryOf(one.attributes));
  return answers;
}

class LdapNode final : public DirectoryNode, public AccountSearches {
 public:
  LdapNode(std::shared_ptr<LdapServer> server, std::shared_ptr<NodeObserver> observer)
      : path_(server->options().path()),
        access_(std::make_shared<LdapAccess>(std::move(server))),
        observer_(std::move(observer)) {}

  const std::string& path() const override { return path_; }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    requireKnown(matchType);
    if (!isDirectoryText(attribute) || attribute.empty() || !isDirectoryText(value)) return {};
    const LdapAccess::Operation operation(*access_);
    std::vector<Found> found;
    for (LdapAccount& account :
         LdapAccounts(*access_).withValue(accountTypes(types), attribute, value))
      found.push_back({std::move(account.order), std::move(account.attributes)});
    for (LdapRecordState& record :
         LdapRecords(*access_).withValue(recordTypes(types), attribute, value))
      found.push_back({record.order, attributesOf(record)});
    return sortedAnswers(std::move(found));
  }

  std::vector<Array> findEach(const std::vector<AccountQuestion>& questions) override {
    const LdapAccess::Operation operation(*access_);
    std::vector<Array> answers;
    answers.reserve(questions.size());
    for (const std::vector<LdapAccount>& accounts : LdapAccounts(*access_).withEach(questions)) {
      Array& answer = answers.emplace_back();
      for (const LdapAccount& account : accounts)
        answer.emplace_back(dictionaryOf(account.attributes));
    }
    return answers;
  }

  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    requireKnown(matchType);
    const bool all = contains(attributes, kAttributesAll);
    const LdapAccess::Operation operation(*access_);
    std::vector<Found> found;
    for (std::vector<AttributeChange>& record : named(name, type)) {
      if (!all)
        std::erase_if(record, [&](const AttributeChange& one) {
          return !contains(attributes, one.attribute);
        });
      found.push_back({"", std::move(record)});
    }
    return sortedAnswers(std::move(found));
  }

  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    if (!isDirectoryText(name) || !isDirectoryText(type)) return nullptr;
    const LdapAccess::Operation operation(*access_);
    if (isAccountType(type)) {
      auto accounts = LdapAccounts(*access_).withValue(type, schema::kRecordName, name);
      if (accounts.empty()) return nullptr;
      return std::make_unique<LdapAccountRecord>(access_, std::move(accounts.front()));
    }
    auto records = LdapRecords(*access_).withValue({type}, schema::kRecordName, name);
    if (records.empty()) return nullptr;
    return std::make_unique<LdapRecord>(access_, std::move(records.front()));
  }

  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    requireDirectoryName(name, "a record name");
    requireDirectoryName(type, "a record type");
    if (isAccountType(type)) refuseAccountChange(access_->options());
    const LdapAccess::Operation operation(*access_);
    return std::make_unique<LdapRecord>(
        access_, access_->change([&] { return LdapRecords(*access_).create(name, type); }));
  }

  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    // A bind with an empty name or password succeeds anonymously.
    if (password.empty() || name.empty()) return EACCES;
    return checkPassword(observer_, path_, name,
                         [&] { return authenticate(name, password, authOnly); });
  }

  Array getAttribute(const std::string& attribute) const override {
    using WriteProof = LdapServer::WriteProof;
    if (attribute == kWriteBasis) {
      const WriteProof proof = access_->writeProof();
      if (proof == WriteProof::none) return {"configured"};
      return {proof == WriteProof::accepted ? "accepted" : "refused"};
    }
    if (attribute != schema::kReadOnlyNode) return {};
    const LdapAccess::Operation operation(*access_);
    // First: it finds a server that was started again, which may take now what it refused.
    LdapRecords(*access_).requireBase();
    const WriteProof proof = access_->writeProof();
    const bool writable = proof == WriteProof::none ? access_->options().isCalledWritable()
                                                    : proof == WriteProof::accepted;
    return {writable ? schema::kReadWrite : schema::kReadOnly};
  }

 private:
  Status authenticate(const std::string& name, const std::string& password, bool authOnly) {
    if (!isDirectoryText(name)) return EACCES;
    const LdapAccess::Operation operation(*access_);
    const auto users = LdapAccounts(*access_).withValue(schema::kUsers, schema::kRecordName, name);
    if (users.empty() && !isDistinguishedName(name)) return EACCES;
    const std::string& dn = users.empty() ? name : users.front().dn;
    return access_->authenticate(dn, password, !authOnly) ? 0 : EACCES;
  }

  static bool contains(const std::vector<std::string>& texts, const std::string& text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }

  static std::vector<std::string> accountTypes(const std::vector<std::string>& types) {
    std::vector<std::string> wanted;
    for (const char* type : {schema::kUsers, schema::kGroups})
      if (contains(types, type)) wanted.emplace_back(type);
    return wanted;
  }

  static std::vector<std::string> recordTypes(std::vector<std::string> types) {
    std::erase_if(types, [](const std::string& type) {
      return isAccountType(type) || type.empty() || !isDirectoryText(type);
    });
    return types;
  }

  // The records of the type with the name, or all.
  std::vector<std::vector<AttributeChange>> named(const std::string& name,
                                                  const std::string& type) {
    std::vector<std::vector<AttributeChange>> found;
    if (!isDirectoryText(name) || name.empty() || !isDirectoryText(type) || type.empty())
      return found;
    const bool all = name == kRecordsAll;
    if (isAccountType(type)) {
      LdapAccounts accounts(*access_);
      for (LdapAccount& account :
           all ? accounts.all(type) : accounts.withValue(type, schema::kRecordName, name))
        found.push_back(std::move(account.attributes));
      return found;
    }
    LdapRecords records(*access_);
    for (const LdapRecordState& record :
         all ? records.ofTypes({type}) : records.withValue({type}, schema::kRecordName, name))
      found.push_back(attributesOf(record));
    return found;
  }

  const std::string path_;
  const std::shared_ptr<LdapAccess> access_;
  const std::shared_ptr<NodeObserver> observer_;
};

}  // namespace

std::shared_ptr<DirectoryNode> makeLdapNode(std::shared_ptr<LdapServer> server,
                                            std::shared_ptr<NodeObserver> observer) {
  return std::make_shared<LdapNode>(std::move(server), std::move(observer));
}

}  // namespace paddock
