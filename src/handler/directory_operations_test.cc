// The operations on directory nodes.
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/testing/fault_plan.h"
#include "platform/testing/faulty_services.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

constexpr const char* kUsers = "dsRecTypeStandard:Users";
constexpr const char* kSite = "/LDAP/site";
constexpr const char* kPassword = "anna's secret";

class DirectoryOperationsTest : public HandlerFixture {
 protected:
  // On each node anna, who may write, and guest, who may not.
  void SetUp() override {
    directory.addNode(kSite, "ReadWrite");
    for (const char* node : {"/Local", kSite}) {
      for (const char* user : {"anna", "guest"}) {
        directory.addRecord(node, kUsers, user);
        directory.setPassword(node, user, kPassword);
      }
      directory.addRecord(node, "dsRecTypeStandard:Groups", "paddock",
                          {{"dsAttrTypeStandard:GroupMembership", Array{"anna"}}});
    }
  }

  static Dictionary requestOf(const std::string& node, const std::string& name,
                              const std::string& password = kPassword) {
    return {{"dsNodeName", node}, {"dsAdminName", name}, {"dsAdminPW", password}};
  }
  Dictionary authenticate(const Dictionary& request) {
    Dictionary reply = handler.performOperation("canAuthDSNode", request);
    EXPECT_TRUE(lockIsFree());
    return reply;
  }
  Dictionary authenticate(const std::string& node, const std::string& name,
                          const std::string& password = kPassword) {
    return authenticate(requestOf(node, name, password));
  }
  static Dictionary refused(const std::string& error) {
    return {{"canAuth", false}, {"error", error}};
  }

  // The status of the DirectoryError that the operation raises; 0 for none.
  Status raisedBy(const Dictionary& request) {
    try {
      authenticate(request);
    } catch (const DirectoryError& error) {
      EXPECT_TRUE(lockIsFree());
      return error.status().value_or(-1);
    }
    return 0;
  }
};

TEST_F(DirectoryOperationsTest, TheNodesAreThoseThatCanBeWrittenInSearchOrder) {
  directory.addNode("/LDAP/replica", "ReadOnly");
  directory.addNode("/LDAP/away", "ReadWrite");
  directory.addNode("/LDAP/other", "ReadWrite");
  directory.failOpening("/LDAP/away", ETIMEDOUT);
  EXPECT_EQ(handler.performOperation("getDSNodes", {}),
            (Dictionary{{"dsNodeArray", Array{"/Local", kSite, "/LDAP/other"}}}));
}

TEST_F(DirectoryOperationsTest, NodesThatTakeNothingLeaveAnEmptyArray) {
  for (const char* node : {"/Local", kSite}) directory.setReadOnlyNode(node, "ReadOnly");
  EXPECT_EQ(handler.performOperation("getDSNodes", {}), (Dictionary{{"dsNodeArray", Array{}}}));
}

TEST_F(DirectoryOperationsTest, TheNodesAreListedWithoutAnErrorEvenWhenTheDirectoryFails) {
  trace.raise("openLocal", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(handler.performOperation("getDSNodes", {}), (Dictionary{{"dsNodeArray", Array{}}}));
  expectLockFree();
}

TEST_F(DirectoryOperationsTest, WhatElseARequestForTheNodesHoldsMakesNoDifference) {
  const Dictionary plain = handler.performOperation("getDSNodes", {});
  EXPECT_EQ(handler.performOperation("getDSNodes", {{"dsNodeName", 7}, {"path", "/srv"}}), plain);
}

TEST_F(DirectoryOperationsTest, AnAdministratorWhoMayWriteCanAuthenticate) {
  for (const char* node : {"/Local", kSite})
    EXPECT_EQ(authenticate(node, "anna"), (Dictionary{{"canAuth", true}})) << node;
}

TEST_F(DirectoryOperationsTest, CanAuthIsABooleanInEveryReply) {
  EXPECT_EQ(authenticate(kSite, "anna").boolean("canAuth"), true);
  EXPECT_EQ(authenticate(kSite, "anna", "wrong").boolean("canAuth"), false);
  EXPECT_NE(authenticate(kSite, "anna", "wrong").find("canAuth")->boolean(), nullptr);
}

TEST_F(DirectoryOperationsTest, AWrongPasswordIsRefusedWithTheStatusText) {
  EXPECT_EQ(authenticate(kSite, "anna", "wrong"), refused("Permission denied"));
  EXPECT_EQ(authenticate(kSite, "nobody"), refused("Permission denied"));
}

TEST_F(DirectoryOperationsTest, AnEmptyPasswordIsRefused) {
  EXPECT_EQ(authenticate(kSite, "anna", ""), refused("Permission denied"));
}

TEST_F(DirectoryOperationsTest, WhoMayNotWriteIsRefusedWithTheServicesStatus) {
  EXPECT_EQ(authenticate(kSite, "guest"), refused("Permission denied"));
  directory.setReadOnlyNode(kSite, "ReadOnly");
  EXPECT_EQ(authenticate(kSite, "anna"), refused("Permission denied"));
  trace.raise("newRecord", DirectoryError(ENOSPC, "full"), 1);
  EXPECT_EQ(authenticate("/Local", "anna"), refused("No space left on device"));
}

TEST_F(DirectoryOperationsTest, AStatusOfTheModulesOwnHasItsNameAsText) {
  trace.fail("authenticateName", CANNOT_SAVE_AUTOMOUNT_ERR);
  EXPECT_EQ(authenticate(kSite, "anna"), refused("CANNOT_SAVE_AUTOMOUNT_ERR"));
}

TEST_F(DirectoryOperationsTest, AnErrorWithoutAStatusHasTheTextOfMinusOne) {
  trace.raise("newRecord", DirectoryError("no number"), 1);
  EXPECT_EQ(authenticate(kSite, "anna"), refused(sharing_error_string(-1)));
}

TEST_F(DirectoryOperationsTest, AnUnknownNodeRaises) {
  for (const char* node : {"/Missing", "/ldap/site", "", "/Local/"})
    EXPECT_EQ(raisedBy(requestOf(node, "anna")), ENOENT) << node;
}

TEST_F(DirectoryOperationsTest, ANodeThatCannotAnswerRaises) {
  directory.failOpening(kSite, ETIMEDOUT);
  EXPECT_EQ(raisedBy(requestOf(kSite, "anna")), ETIMEDOUT);
}

TEST_F(DirectoryOperationsTest, KeysThatAreMissingOrOfAnotherTypeReadAsNothing) {
  const Dictionary good = requestOf(kSite, "anna");
  for (const Value& other : {Value(), Value(7), Value(true), Value(Array{kSite}),
                             Value(Dictionary{{"a", "b"}}), Value("")}) {
    for (const char* key : {"dsAdminName", "dsAdminPW"}) {
      Dictionary request = good;
      request.set(key, other);
      EXPECT_EQ(authenticate(request), refused("Permission denied")) << key;
    }
    Dictionary request = good;
    request.set("dsNodeName", other);
    EXPECT_EQ(raisedBy(request), ENOENT);
  }
  for (const char* key : {"dsAdminName", "dsAdminPW"}) {
    Dictionary request = good;
    request.erase(key);
    EXPECT_EQ(authenticate(request), refused("Permission denied")) << key;
  }
  EXPECT_EQ(raisedBy({}), ENOENT);
}

TEST_F(DirectoryOperationsTest, NothingIsLeftOnTheNode) {
  for (const char* name : {"anna", "guest", "nobody"}) authenticate(kSite, name);
  EXPECT_TRUE(recordNames(schema::kMounts, kSite).empty());
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(DirectoryOperationsTest, ThePasswordIsNeitherAnsweredNorLogged) {
  const auto holdsIt = [](const Dictionary& reply) {
    for (const auto& [key, value] : reply)
      if (value.string() != nullptr && value.string()->find(kPassword) != std::string::npos)
        return true;
    return false;
  };
  for (const char* name : {"anna", "guest", "nobody"})
    EXPECT_FALSE(holdsIt(authenticate(kSite, name))) << name;
  for (const auto& line : logger.lines())
    EXPECT_EQ(line.text.find(kPassword), std::string::npos) << line.text;
}

// Whatever call of the directory fails, the test record goes unless its removal is what fails, and
// the same request works afterwards.
TEST_F(DirectoryOperationsTest, EveryCallOfTheDirectoryMayFail) {
  const Services real = services();
  for (std::size_t n = 1;; ++n) {
    FaultPlan plan(n);
    const FaultyServices faulty(real, plan);
    Dictionary reply;
    bool raised = false;
    {
      const ServicesGuard guard(faulty.services());
      try {
        reply = authenticate(kSite, "anna");
      } catch (const DirectoryError& error) {
        raised = true;
        EXPECT_EQ(error.status(), EIO);
      }
    }
    expectLockFree();
    EXPECT_EQ(directory.openSessions(), 0);
    const bool proving =
        plan.failedCall() == "node.newRecord" || plan.failedCall() == "record.removeRecord";
    EXPECT_EQ(raised, plan.fired() && !proving) << plan.failedCall();
    if (!plan.fired()) {
      EXPECT_EQ(reply, (Dictionary{{"canAuth", true}}));
      break;
    }
    const Dictionary expected = raised ? Dictionary() : refused(sharing_error_string(EIO));
    EXPECT_EQ(reply, expected);
    const bool stays = plan.failedCall() == "record.removeRecord";
    EXPECT_EQ(recordNames(schema::kMounts, kSite).empty(), !stays) << plan.failedCall();
    if (stays) {
      EXPECT_EQ(authenticate(kSite, "anna"), refused("File exists"));
      directory.openLocal()
          ->findNode(kSite)
          ->findRecord("verifyAuthTempName", schema::kMounts)
          ->removeRecord();
    }
    EXPECT_EQ(authenticate(kSite, "anna"), (Dictionary{{"canAuth", true}})) << plan.failedCall();
  }
}

}  // namespace
}  // namespace paddock
