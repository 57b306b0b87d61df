// The directory services that the contract suites run on.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/directory.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/ldap/ldap_node.h"
#include "platform/linux/process/case_fold.h"
#include "platform/search_node.h"
#include "platform/testing/in_memory_directory.h"
#include "support/directory_errors.h"
#include "support/slapd_server.h"
#include "support/temporary_folder.h"

namespace paddock::contract {

inline constexpr const char* kAdmins = "paddock-contract-admins";
inline constexpr const char* kShares = "dsRecTypeStandard:SharePoints";
inline constexpr const char* kMounts = "dsRecTypeStandard:Mounts";

// A service with a node that is empty and may be written.
class DirectorySubject {
 public:
  virtual ~DirectorySubject() = default;
  virtual DirectoryService& service() = 0;
  virtual std::string nodePath() { return kLocalNodePath; }
  // A user of the node who has the password and may write, or not.
  virtual void addUser(const std::string& name, const std::string& password, bool mayWrite) = 0;
  // A user of the node without a password.
  virtual void addUserWithoutPassword(const std::string& name) = 0;
  virtual void setPassword(const std::string& user, const std::string& password) = 0;
};

// One whose node is "/Local".
class LocalSubject : public DirectorySubject {
 public:
  void addUser(const std::string& name, const std::string& password, bool mayWrite) override {
    addUserWithoutPassword(name);
    setPassword(name, password);
    if (mayWrite) addAdmin(name);
  }
  void addUserWithoutPassword(const std::string& name) override {
    service().openLocal()->localNode()->newRecord(name, schema::kUsers);
  }

 private:
  void addAdmin(const std::string& name) {
    const auto node = service().openLocal()->localNode();
    auto group = node->findRecord(kAdmins, schema::kGroups);
    if (!group) group = node->newRecord(kAdmins, schema::kGroups);
    Array members = group->getAttribute(schema::kGroupMembership);
    members.emplace_back(name);
    group->setAttribute(schema::kGroupMembership, members);
  }
};

class InMemorySubject final : public LocalSubject {
 public:
  DirectoryService& service() override { return directory_; }
  void setPassword(const std::string& user, const std::string& password) override {
    directory_.setPassword("/Local", user, password);
  }

 private:
  InMemoryDirectory directory_{caseFold, kAdmins};
};

class LinuxSubject final : public LocalSubject {
 public:
  DirectoryService& service() override { return directory_; }
  void setPassword(const std::string& user, const std::string& password) override {
    directory_.openLocalNode()->setPassword(user, password);
  }

 private:
  TestFolder folder_;
  LinuxDirectoryService directory_{{.databasePath = folder_.path("directory.sqlite"),
                                    .adminGroup = kAdmins,
                                    .pam = std::nullopt}};
};

// A service of the nodes of a list.
class ListedNodes final : public DirectoryService {
 public:
  explicit ListedNodes(NodeList nodes)
      : nodes_(std::make_shared<const NodeList>(std::move(nodes))) {}
  std::unique_ptr<DirectorySession> openLocal() override { return makeSession(nodes_); }

 private:
  std::shared_ptr<const NodeList> nodes_;
};

// A node of a directory server of its own.
class LdapSubject final : public DirectorySubject {
 public:
  DirectoryService& service() override { return service_; }
  std::string nodePath() override { return options_.path(); }
  void addUser(const std::string& name, const std::string& password, bool mayWrite) override {
    slapd_.addPerson(name, password, mayWrite);
  }
  void addUserWithoutPassword(const std::string& name) override {
    slapd_.add("dn: uid=" + name + "," + SlapdServer::kPeople +
               "\nobjectClass: inetOrgPerson\ncn: x\nsn: x\nuid: " + name + "\n");
  }
  void setPassword(const std::string& user, const std::string& password) override {
    slapd_.modify("dn: uid=" + user + "," + SlapdServer::kPeople +
                  "\nchangetype: modify\nreplace: userPassword\nuserPassword: " + password + "\n");
  }

 private:
  SlapdServer slapd_;
  LdapOptions options_ = slapd_.nodeOptions();
  std::shared_ptr<LdapServer> server_ = std::make_shared<LdapServer>(options_);
  ListedNodes service_{{{options_.path(), [server = server_] { return makeLdapNode(server); }}}};
};

// Runs on every subject. `makeSubject` is the parameter.
struct SubjectKind {
  const char* name;
  std::unique_ptr<DirectorySubject> (*make)();
  // Why it cannot be made here; empty when it can.
  std::string (*whyNot)() = [] { return std::string(); };
};

inline const SubjectKind kLocalSubjectKinds[] = {
    {"InMemory", [] { return std::unique_ptr<DirectorySubject>(new InMemorySubject); }},
    {"Linux", [] { return std::unique_ptr<DirectorySubject>(new LinuxSubject); }},
};
inline const SubjectKind kSubjectKinds[] = {
    kLocalSubjectKinds[0],
    kLocalSubjectKinds[1],
    {"Ldap", [] { return std::unique_ptr<DirectorySubject>(new LdapSubject); }, whyNoSlapd},
};

inline std::string subjectName(const ::testing::TestParamInfo<SubjectKind>& info) {
  return info.param.name;
}

class DirectoryTest : public ::testing::TestWithParam<SubjectKind> {
 protected:
  void SetUp() override {
    const std::string why = GetParam().whyNot();
    if (!why.empty()) GTEST_SKIP() << why;
    subject_ = GetParam().make();
  }

  DirectoryService& service() { return subject_->service(); }
  DirectorySubject& subject() { return *subject_; }
  std::string nodePath() { return subject_->nodePath(); }
  // The subject's node, in a session of its own.
  std::shared_ptr<DirectoryNode> openNode() { return nodeOf(*service().openLocal()); }
  std::shared_ptr<DirectoryNode> nodeOf(DirectorySession& session) {
    return session.findNode(nodePath());
  }

  // The names (first values of RecordName) of the answers, in their order.
  static std::vector<std::string> namesOf(const Array& answers) {
    std::vector<std::string> names;
    for (const Value& answer : answers)
      names.push_back(*answer.dictionary()->array(schema::kRecordName)->front().string());
    return names;
  }
  static std::vector<std::string> namesWith(DirectoryNode& node, const std::string& attribute,
                                            const std::string& value,
                                            const std::vector<std::string>& types = {kShares}) {
    return namesOf(
        node.findRecordsOfTypes(types, attribute, value, MatchType::caseInsensitiveExact));
  }
  static std::vector<std::string> allNames(DirectoryNode& node, const std::string& type = kShares) {
    return namesOf(
        node.findRecordNames(kRecordsAll, {kAttributesAll}, type, MatchType::caseInsensitiveExact));
  }

 private:
  std::unique_ptr<DirectorySubject> subject_;
};

}  // namespace paddock::contract
