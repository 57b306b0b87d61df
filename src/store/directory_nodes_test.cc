#include "store/directory_nodes.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kMounts;

constexpr const char* kUsers = "dsRecTypeStandard:Users";
constexpr const char* kTemporaryName = "verifyAuthTempName";

TEST(NodeCredentials, TheFirstEntryOfTheNodeIsTaken) {
  const Array credentials{Dictionary{{"nodePath", "/Local"}, {"adminUserName", "one"}},
                          Dictionary{{"nodePath", "/LDAP/a"}, {"adminUserName", "two"}},
                          Dictionary{{"nodePath", "/LDAP/a"}, {"adminUserName", "three"}}};
  const Dictionary* found = get_ds_credentials_for_node_path(credentials, "/LDAP/a");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found, credentials[1].dictionary());
  EXPECT_EQ(*found->string("adminUserName"), "two");
}

TEST(NodeCredentials, TheNodePathIsComparedExactly) {
  const Array credentials{Dictionary{{"nodePath", "/LDAP/a"}}};
  for (const char* path : {"/ldap/a", "/LDAP/a/", "/LDAP", "/LDAP/ab", ""}) {
    EXPECT_EQ(get_ds_credentials_for_node_path(credentials, path), nullptr) << path;
  }
}

TEST(NodeCredentials, WithoutAnEntryThereAreNone) {
  EXPECT_EQ(get_ds_credentials_for_node_path({}, "/Local"), nullptr);
}

TEST(NodeCredentials, EntriesOfAnotherShapeArePassedOver) {
  const Array credentials{"/Local",
                          7,
                          Array{"/Local"},
                          Dictionary{},
                          Dictionary{{"nodePath", 5}},
                          Dictionary{{"nodePath", Array{"/Local"}}},
                          Dictionary{{"nodePath", "/Local"}, {"adminUserName", "x"}}};
  EXPECT_EQ(get_ds_credentials_for_node_path(credentials, "/Local"), credentials[6].dictionary());
}

class NodeAuthentication : public ModuleFixture {
 protected:
  void SetUp() override {
    directory.addNode("/Other", "ReadWrite");
    for (const char* node : {"/Local", "/Other"}) {
      directory.addRecord(node, kUsers, "admin");
      directory.setPassword(node, "admin", "secret");
      directory.addRecord(node, kUsers, "guest");
      directory.setPassword(node, "guest", "open");
      directory.addRecord(node, "dsRecTypeStandard:Groups", "paddock",
                          {{"dsAttrTypeStandard:GroupMembership", Array{"admin"}}});
    }
  }
  bool canAuth_ = true;
};

TEST_F(NodeAuthentication, AnAdministratorWhoMayCreateRecordsCanAuthenticate) {
  for (const char* node : {"/Local", "/Other"}) {
    canAuth_ = false;
    EXPECT_EQ(auth_ds_node(node, "admin", "secret", canAuth_), 0) << node;
    EXPECT_TRUE(canAuth_) << node;
  }
}

TEST_F(NodeAuthentication, CreatesAndRemovesProbeRecordOnThatNode) {
  trace.forgetCalls();
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), 0);
  EXPECT_EQ(trace.callsOf("newRecord"),
            (std::vector<ServiceCall>{{"newRecord", kTemporaryName, kMounts}}));
  EXPECT_EQ(trace.callsOf("removeRecord"),
            (std::vector<ServiceCall>{{"removeRecord", kTemporaryName, ""}}));
  EXPECT_TRUE(recordNames(kMounts, "/Other").empty());
  EXPECT_TRUE(recordNames(kMounts, "/Local").empty());
}

TEST_F(NodeAuthentication, TheSessionKeepsTheAuthenticationForWriting) {
  trace.forgetCalls();
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), 0);
  EXPECT_EQ(trace.callsOf("authenticateName"),
            (std::vector<ServiceCall>{{"authenticateName", "admin", "keep"}}));
}

TEST_F(NodeAuthentication, AWrongPasswordGivesTheAuthenticationsStatus) {
  EXPECT_EQ(auth_ds_node("/Other", "admin", "wrong", canAuth_), EACCES);
  EXPECT_FALSE(canAuth_);
  EXPECT_EQ(trace.count("newRecord"), 0U);
}

TEST_F(NodeAuthentication, AnUnknownAdministratorGivesTheAuthenticationsStatus) {
  EXPECT_EQ(auth_ds_node("/Other", "nobody", "secret", canAuth_), EACCES);
  EXPECT_FALSE(canAuth_);
}

TEST_F(NodeAuthentication, AnyStatusOfTheAuthenticationIsPassedOn) {
  trace.fail("authenticateName", -14090);
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), -14090);
  EXPECT_FALSE(canAuth_);
  EXPECT_EQ(trace.count("newRecord"), 0U);
}

TEST_F(NodeAuthentication, CorrectPasswordWithoutCreateRightReturnsServiceStatus) {
  EXPECT_EQ(auth_ds_node("/Other", "guest", "open", canAuth_), EACCES);
  EXPECT_FALSE(canAuth_);
  EXPECT_EQ(trace.count("newRecord"), 1U);
}

TEST_F(NodeAuthentication, AReadOnlyNodeGivesTheServicesStatus) {
  directory.setReadOnlyNode("/Other", "ReadOnly");
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), EACCES);
  EXPECT_FALSE(canAuth_);
}

TEST_F(NodeAuthentication, CreationErrorWithoutStatusReturnsMinusOne) {
  trace.raise("newRecord", DirectoryError("no number"), 1);
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), -1);
  EXPECT_FALSE(canAuth_);
  canAuth_ = true;
  trace.raise("newRecord", std::runtime_error("not the directory's"), 1);
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), -1);
  EXPECT_FALSE(canAuth_);
}

TEST_F(NodeAuthentication, ARemovalErrorGivesItsStatus) {
  trace.raise("removeRecord", DirectoryError(EBUSY, "locked"));
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), EBUSY);
  EXPECT_FALSE(canAuth_);
}

TEST_F(NodeAuthentication, ErrorWithZeroStatusCountsAsSuccess) {
  canAuth_ = false;
  trace.raise("newRecord", DirectoryError(0, "no error at all"));
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), 0);
  EXPECT_TRUE(canAuth_);
}

TEST_F(NodeAuthentication, ANodeThatDoesNotExistRaises) {
  EXPECT_THROW(auth_ds_node("/Missing", "admin", "secret", canAuth_), DirectoryError);
}

TEST_F(NodeAuthentication, RefusedNodeChangeLogsReason) {
  trace.raise("newRecord", DirectoryError("no number"), 1);
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), -1);
  trace.raise("removeRecord", DirectoryError(EACCES, "read-only"), 1);
  EXPECT_EQ(auth_ds_node("/Other", "admin", "secret", canAuth_), EACCES);
  const std::string beginning = "paddock_sharing: admin cannot write to the node /Other: ";
  EXPECT_EQ(logger.lines(),
            (std::vector<RecordingLogger::Line>{{kLogError, beginning + "no number"},
                                                {kLogError, beginning + "read-only"}}));
}

TEST_F(NodeAuthentication, ANodeThatCannotAnswerRaises) {
  trace.raise("authenticateName", DirectoryError(ETIMEDOUT, "slow"));
  EXPECT_THROW(auth_ds_node("/Other", "admin", "secret", canAuth_), DirectoryError);
}

TEST_F(NodeAuthentication, ASessionThatCannotBeOpenedRaises) {
  trace.raise("openLocal", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(auth_ds_node("/Other", "admin", "secret", canAuth_), DirectoryError);
}

TEST_F(NodeAuthentication, NoSessionIsLeftOpen) {
  auth_ds_node("/Other", "admin", "secret", canAuth_);
  auth_ds_node("/Other", "guest", "open", canAuth_);
  EXPECT_THROW(auth_ds_node("/Missing", "admin", "secret", canAuth_), DirectoryError);
  EXPECT_EQ(directory.openSessions(), 0);
}

class DirectoryNodes : public ModuleFixture {
 protected:
  Array nodes_{"stale"};
};

TEST_F(DirectoryNodes, WritableNodesAreListedInSearchOrder) {
  directory.addNode("/LDAP/z", "ReadWrite");
  directory.addNode("/LDAP/a", "ReadWrite");
  EXPECT_EQ(get_ds_nodes(nodes_), 0);
  EXPECT_EQ(nodes_, (Array{"/Local", "/LDAP/z", "/LDAP/a"}));
}

TEST_F(DirectoryNodes, OnlyExactlyReadWriteIsWritable) {
  directory.addNode("/a", "ReadOnly");
  directory.addNode("/b", "readwrite");
  directory.addNode("/c", "ReadWrite ");
  directory.addNode("/d", "");
  directory.addNode("/e", std::nullopt);
  directory.addNode("/f", "ReadWrite");
  EXPECT_EQ(get_ds_nodes(nodes_), 0);
  EXPECT_EQ(nodes_, (Array{"/Local", "/f"}));
}

TEST_F(DirectoryNodes, UnopenableNodeIsSkipped) {
  directory.addNode("/a", "ReadWrite");
  directory.addNode("/b", "ReadWrite");
  directory.failOpening("/a", ETIMEDOUT);
  EXPECT_EQ(get_ds_nodes(nodes_), 0);
  EXPECT_EQ(nodes_, (Array{"/Local", "/b"}));
}

TEST_F(DirectoryNodes, NodeWithUnreadableAttributeIsSkipped) {
  directory.addNode("/a", "ReadWrite");
  directory.addNode("/b", "ReadWrite");
  trace.raiseFor("getNodeAttribute", "/a", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(get_ds_nodes(nodes_), 0);
  EXPECT_EQ(nodes_, (Array{"/Local", "/b"}));
  trace.forgetRules();
  trace.raiseFor("findNode", "/b", std::runtime_error("not the directory's"));
  EXPECT_EQ(get_ds_nodes(nodes_), 0);
  EXPECT_EQ(nodes_, (Array{"/Local", "/a"}));
}

TEST_F(DirectoryNodes, WithoutAWritableNodeTheListIsEmpty) {
  directory.setReadOnlyNode("/Local", "ReadOnly");
  EXPECT_EQ(get_ds_nodes(nodes_), 0);
  EXPECT_TRUE(nodes_.empty());
}

TEST_F(DirectoryNodes, UnreadableSearchPathReturnsNoNodes) {
  for (const char* operation : {"openLocal", "searchNode", "getNodeAttribute"}) {
    nodes_ = {"stale"};
    trace.raise(operation, DirectoryError(EIO, "damaged"));
    EXPECT_EQ(get_ds_nodes(nodes_), 0) << operation;
    EXPECT_TRUE(nodes_.empty()) << operation;
    trace.forgetRules();
  }
}

}  // namespace
}  // namespace paddock
