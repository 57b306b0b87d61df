#include "platform/linux/directory/local_node.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/directory.h"
#include "platform/linux/accounts/password_hash.h"
#include "platform/linux/accounts/user_groups.h"
#include "platform/linux/directory/local_record.h"
#include "platform/linux/process/case_fold.h"
#include "platform/search_node.h"

namespace paddock {

namespace {

// What authenticating needs of a user's record.
struct Credentials {
  AuthenticatedUser user;
  std::string hash;
};

std::optional<std::string> firstValue(const std::vector<AttributeChange>& attributes,
                                      const std::string& attribute) {
  for (const AttributeChange& one : attributes)
    if (one.attribute == attribute) return one.values.front();
  return std::nullopt;
}

std::optional<Credentials> credentialsOf(LocalStore& store, const std::string& name) {
  const auto number = store.find(name, schema::kUsers);
  const auto hash = number ? store.passwordHash(*number) : std::nullopt;
  if (!hash) return std::nullopt;
  const auto attributes = store.read(*number);
  return Credentials{
      {*firstValue(attributes, schema::kRecordName), firstValue(attributes, schema::kUniqueID),
       firstValue(attributes, schema::kPrimaryGroupID)},
      *hash};
}

bool isInLocalGroup(LocalStore& store, const AuthenticatedUser& user, const std::string& group) {
  const auto number = store.find(group, schema::kGroups);
  if (!number) return false;
  const std::string folded = caseFold(user.name);
  for (const auto& [attribute, values] : store.read(*number)) {
    if (attribute == schema::kPrimaryGroupID && user.primaryGroupId == values.front()) return true;
    if (attribute == schema::kGroupMembership &&
        std::any_of(values.begin(), values.end(),
                    [&](const std::string& member) { return caseFold(member) == folded; }))
      return true;
  }
  return false;
}

std::string hashOf(const std::string& password) {
  try {
    return hashPassword(password);
  } catch (const std::system_error& error) {
    throw DirectoryError(error.code().value(), "the password cannot be used");
  }
}

void requireKnown(MatchType matchType) {
  if (matchType != MatchType::caseInsensitiveExact)
    throw DirectoryError(EINVAL, "the match type is not known");
}

class LocalNode final : public LocalDirectoryNode {
 public:
  LocalNode(std::shared_ptr<LocalDatabase> database, std::string adminGroup,
            std::shared_ptr<NodeObserver> observer)
      : access_(std::make_shared<LocalAccess>(std::move(database))),
        adminGroup_(std::move(adminGroup)),
        observer_(std::move(observer)) {}

  const std::string& path() const override { return path_; }

  Array findRecordsOfTypes(const std::vector<std::string>& types, const std::string& attribute,
                           const std::string& value, MatchType matchType) override {
    requireKnown(matchType);
    if (!isDirectoryText(value) || !isDirectoryText(attribute)) return {};
    return database().recordsWithValue(types, attribute, value);
  }

  Array findRecordNames(const std::string& name, const std::vector<std::string>& attributes,
                        const std::string& type, MatchType matchType) override {
    requireKnown(matchType);
    if (!isDirectoryText(name) || !isDirectoryText(type)) return {};
    return database().use(
        [&](LocalStore& store) { return store.recordsWithName(name, attributes, type); });
  }

  std::unique_ptr<DirectoryRecord> findRecord(const std::string& name,
                                              const std::string& type) override {
    if (!isDirectoryText(name) || !isDirectoryText(type)) return nullptr;
    return database().use([&](LocalStore& store) -> std::unique_ptr<DirectoryRecord> {
      const auto number = store.find(name, type);
      return number ? record(*number) : nullptr;
    });
  }

  std::unique_ptr<DirectoryRecord> newRecord(const std::string& name,
                                             const std::string& type) override {
    access_->requireWritable();
    requireDirectoryName(name, "a record name");
    requireDirectoryName(type, "a record type");
    return database().use([&](LocalStore& store) { return record(store.create(name, type)); });
  }

  Status authenticateName(const std::string& name, const std::string& password,
                          bool authOnly) override {
    // Nobody has an empty one, so that it is no attempt.
    if (password.empty()) return EACCES;
    return checkPassword(observer_, path_, name,
                         [&] { return authenticate(name, password, authOnly); });
  }

  Array getAttribute(const std::string& attribute) const override {
    if (attribute == schema::kReadOnlyNode) return {schema::kReadWrite};
    return {};
  }

  void setPassword(const std::string& user, const std::string& password) override {
    access_->requireWritable();
    const std::string hash = hashOf(password);
    database().use([&](LocalStore& store) {
      const auto number =
          isDirectoryText(user) ? store.find(user, schema::kUsers) : std::optional<RecordNumber>();
      if (!number) throw DirectoryError(ENOENT, "there is no user \"" + user + "\" on /Local");
      store.setPasswordHash(*number, hash);
    });
  }

 private:
  LocalDatabase& database() { return *access_->database; }

  std::unique_ptr<DirectoryRecord> record(RecordNumber number) {
    return std::make_unique<LocalRecord>(access_, number, database().generation());
  }

  Status authenticate(const std::string& name, const std::string& password, bool authOnly) {
    if (!isDirectoryText(name)) return EACCES;
    const auto credentials =
        database().use([&](LocalStore& store) { return credentialsOf(store, name); });
    if (!credentials) {
      spendTimeOfPasswordCheck(password);
      return EACCES;
    }
    if (!passwordMatches(password, credentials->hash)) return EACCES;
    if (authOnly) return 0;
    // Refused first: when the groups cannot be asked, no right is left over.
    access_->refused = true;
    access_->refused = !mayWrite(credentials->user);
    return 0;
  }

  bool mayWrite(const AuthenticatedUser& user) {
    return isRoot(user) || isInSystemGroup(user, adminGroup_) ||
           database().use(
               [&](LocalStore& store) { return isInLocalGroup(store, user, adminGroup_); });
  }

  const std::string path_ = kLocalNodePath;
  const std::shared_ptr<LocalAccess> access_;
  const std::string adminGroup_;
  const std::shared_ptr<NodeObserver> observer_;
};

}  // namespace

std::shared_ptr<LocalDirectoryNode> openLocalNode(std::shared_ptr<LocalDatabase> database,
                                                  std::string adminGroup,
                                                  std::shared_ptr<NodeObserver> observer) {
  database->use([](LocalStore&) {});
  return std::make_shared<LocalNode>(std::move(database), std::move(adminGroup),
                                     std::move(observer));
}

}  // namespace paddock
