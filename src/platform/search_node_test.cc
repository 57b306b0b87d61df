#include "platform/search_node.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <map>
#include <utility>

#include "platform/directory.h"

namespace paddock {
namespace {

constexpr auto kExact = MatchType::caseInsensitiveExact;

// Has the one user of its name, or raises an error.
class OneUserNode final : public DirectoryNode {
 public:
  OneUserNode(std::string path, std::string user, Status error)
      : path_(std::move(path)), user_(std::move(user)), error_(error) {}

  const std::string& path() const override { return path_; }
  Array findRecordsOfTypes(const std::vector<std::string>&, const std::string&, const std::string&,
                           MatchType) override {
    return answers();
  }
  Array findRecordNames(const std::string&, const std::vector<std::string>&, const std::string&,
                        MatchType) override {
    return answers();
  }
  std::unique_ptr<DirectoryRecord> findRecord(const std::string&, const std::string&) override {
    answers();
    return nullptr;
  }
  std::unique_ptr<DirectoryRecord> newRecord(const std::string&, const std::string&) override {
    return nullptr;
  }
  Status authenticateName(const std::string&, const std::string&, bool) override { return 0; }
  Array getAttribute(const std::string&) const override { return {}; }

 private:
  Array answers() const {
    if (error_ != 0) throw DirectoryError(error_, path_ + " does not answer");
    return {Dictionary{{schema::kRecordName, Array{user_}}}};
  }

  std::string path_;
  std::string user_;
  Status error_;
};

class Noted final : public NodeObserver {
 public:
  void leftOut(const std::string& path, const DirectoryError& error) override {
    states[path] = error.what();
  }
  void answered(const std::string& path) override { states[path] = "answered"; }

  std::map<std::string, std::string> states;
};

class SearchNodeLookups : public ::testing::Test {
 protected:
  void add(const std::string& path, const std::string& user) {
    nodes_.push_back({path, [this, path, user] {
                        return std::make_shared<OneUserNode>(path, user, errors_[path]);
                      }});
  }
  std::shared_ptr<DirectoryNode> search() {
    return makeSession(std::make_shared<const NodeList>(nodes_), noted_)->searchNode();
  }
  std::string names(const Array& answers) {
    std::string text;
    for (const Value& answer : answers)
      text += *answer.dictionary()->array(schema::kRecordName)->front().string() + " ";
    return text;
  }
  Status raisedBy(const std::function<void()>& work) {
    try {
      work();
    } catch (const DirectoryError& error) {
      return error.status().value_or(-1);
    }
    return 0;
  }

  NodeList nodes_;
  std::map<std::string, Status> errors_;
  std::shared_ptr<Noted> noted_ = std::make_shared<Noted>();
};

TEST_F(SearchNodeLookups, DownNodeIsOmittedAndReported) {
  add("/Local", "anna");
  add("/LDAP/a", "bert");
  add("/LDAP/b", "carl");
  errors_["/LDAP/a"] = ECONNREFUSED;
  EXPECT_EQ(names(search()->findRecordsOfTypes({schema::kUsers}, "a", "b", kExact)), "anna carl ");
  EXPECT_EQ(names(search()->findRecordNames(kRecordsAll, {}, schema::kUsers, kExact)),
            "anna carl ");
  EXPECT_EQ(search()->findRecord("zoe", schema::kUsers), nullptr);
  const std::map<std::string, std::string> expected{
      {"/LDAP/a", "/LDAP/a does not answer"}, {"/LDAP/b", "answered"}, {"/Local", "answered"}};
  EXPECT_EQ(noted_->states, expected);
  errors_["/LDAP/a"] = 0;
  EXPECT_EQ(names(search()->findRecordNames(kRecordsAll, {}, schema::kUsers, kExact)),
            "anna bert carl ");
  EXPECT_EQ(noted_->states["/LDAP/a"], "answered");
}

TEST_F(SearchNodeLookups, WithoutAnsweringNodesFirstErrorIsThrown) {
  add("/Local", "anna");
  add("/LDAP/a", "bert");
  errors_["/Local"] = EBUSY;
  errors_["/LDAP/a"] = ETIMEDOUT;
  EXPECT_EQ(raisedBy([&] { search()->findRecordsOfTypes({}, "a", "b", kExact); }), EBUSY);
  EXPECT_EQ(raisedBy([&] { search()->findRecordNames("a", {}, "b", kExact); }), EBUSY);
  EXPECT_EQ(raisedBy([&] { search()->findRecord("a", "b"); }), EBUSY);
}

TEST_F(SearchNodeLookups, UndecidedNodeStopsAuthentication) {
  add("/Local", "anna");
  add("/LDAP/a", "anna");
  errors_["/Local"] = EBUSY;
  EXPECT_EQ(raisedBy([&] { search()->authenticateName("anna", "x", true); }), EBUSY);
}

TEST_F(SearchNodeLookups, WithoutObserverDownNodesAreOmitted) {
  add("/Local", "anna");
  add("/LDAP/a", "bert");
  errors_["/LDAP/a"] = ETIMEDOUT;
  const auto node = openNode(std::make_shared<const NodeList>(nodes_), kSearchNodePath);
  EXPECT_EQ(names(node->findRecordNames(kRecordsAll, {}, schema::kUsers, kExact)), "anna ");
}

}  // namespace
}  // namespace paddock
