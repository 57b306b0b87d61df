#include "handler/sharing_request_handler.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <map>
#include <stdexcept>

#include "base/mutex.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/service_doubles.h"
#include "support/handler_fixture.h"

namespace paddock {

// The operations on directory nodes.
namespace {

constexpr const char* kUsers = "dsRecTypeStandard:Users";
constexpr const char* kSite = "/LDAP/site";
constexpr const char* kPassword = "anna's secret";

class DirectoryOperations : public HandlerFixture {
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

TEST_F(DirectoryOperations, ListsWritableNodesInSearchOrder) {
  directory.addNode("/LDAP/replica", "ReadOnly");
  directory.addNode("/LDAP/away", "ReadWrite");
  directory.addNode("/LDAP/other", "ReadWrite");
  directory.failOpening("/LDAP/away", ETIMEDOUT);
  EXPECT_EQ(handler.performOperation("getDSNodes", {}),
            (Dictionary{{"dsNodeArray", Array{"/Local", kSite, "/LDAP/other"}}}));
}

TEST_F(DirectoryOperations, NodesThatTakeNothingLeaveAnEmptyArray) {
  for (const char* node : {"/Local", kSite}) directory.setReadOnlyNode(node, "ReadOnly");
  EXPECT_EQ(handler.performOperation("getDSNodes", {}), (Dictionary{{"dsNodeArray", Array{}}}));
}

TEST_F(DirectoryOperations, FailingDirectoryListsNodesWithoutError) {
  trace.raise("openLocal", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(handler.performOperation("getDSNodes", {}), (Dictionary{{"dsNodeArray", Array{}}}));
  expectLockFree();
}

TEST_F(DirectoryOperations, NodeListIgnoresOtherRequestKeys) {
  const Dictionary plain = handler.performOperation("getDSNodes", {});
  EXPECT_EQ(handler.performOperation("getDSNodes", {{"dsNodeName", 7}, {"path", "/srv"}}), plain);
}

TEST_F(DirectoryOperations, AnAdministratorWhoMayWriteCanAuthenticate) {
  for (const char* node : {"/Local", kSite})
    EXPECT_EQ(authenticate(node, "anna"), (Dictionary{{"canAuth", true}})) << node;
}

TEST_F(DirectoryOperations, CanAuthIsABooleanInEveryReply) {
  EXPECT_EQ(authenticate(kSite, "anna").boolean("canAuth"), true);
  EXPECT_EQ(authenticate(kSite, "anna", "wrong").boolean("canAuth"), false);
  EXPECT_NE(authenticate(kSite, "anna", "wrong").find("canAuth")->boolean(), nullptr);
}

TEST_F(DirectoryOperations, WrongPasswordIsRefusedWithStatusText) {
  EXPECT_EQ(authenticate(kSite, "anna", "wrong"), refused("Permission denied"));
  EXPECT_EQ(authenticate(kSite, "nobody"), refused("Permission denied"));
}

TEST_F(DirectoryOperations, AnEmptyPasswordIsRefused) {
  EXPECT_EQ(authenticate(kSite, "anna", ""), refused("Permission denied"));
}

TEST_F(DirectoryOperations, UserWithoutWriteRightGetsServiceStatus) {
  EXPECT_EQ(authenticate(kSite, "guest"), refused("Permission denied"));
  directory.setReadOnlyNode(kSite, "ReadOnly");
  EXPECT_EQ(authenticate(kSite, "anna"), refused("Permission denied"));
  trace.raise("newRecord", DirectoryError(ENOSPC, "full"), 1);
  EXPECT_EQ(authenticate("/Local", "anna"), refused("No space left on device"));
}

TEST_F(DirectoryOperations, ModuleStatusHasItsNameAsText) {
  trace.fail("authenticateName", CANNOT_SAVE_AUTOMOUNT_ERR);
  EXPECT_EQ(authenticate(kSite, "anna"), refused("CANNOT_SAVE_AUTOMOUNT_ERR"));
}

TEST_F(DirectoryOperations, ErrorWithoutStatusHasTextOfMinusOne) {
  trace.raise("newRecord", DirectoryError("no number"), 1);
  EXPECT_EQ(authenticate(kSite, "anna"), refused(sharing_error_string(-1)));
}

TEST_F(DirectoryOperations, AnUnknownNodeRaises) {
  for (const char* node : {"/Missing", "/ldap/site", "", "/Local/"})
    EXPECT_EQ(raisedBy(requestOf(node, "anna")), ENOENT) << node;
}

TEST_F(DirectoryOperations, ANodeThatCannotAnswerRaises) {
  directory.failOpening(kSite, ETIMEDOUT);
  EXPECT_EQ(raisedBy(requestOf(kSite, "anna")), ETIMEDOUT);
}

TEST_F(DirectoryOperations, MissingOrWronglyTypedKeysReadAsAbsent) {
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

TEST_F(DirectoryOperations, NothingIsLeftOnTheNode) {
  for (const char* name : {"anna", "guest", "nobody"}) authenticate(kSite, name);
  EXPECT_TRUE(recordNames(schema::kMounts, kSite).empty());
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(DirectoryOperations, ThePasswordIsNeitherAnsweredNorLogged) {
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

// Whatever call of the directory fails, the test record is removed unless its removal is what
// fails, and the same request succeeds afterwards.
TEST_F(DirectoryOperations, EveryCallOfTheDirectoryMayFail) {
  const Services real = services();
  for (std::size_t n = 1;; ++n) {
    FaultPlan plan(n);
    const ForwardingServices faulty(real, plan);
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

class SharingHandler : public HandlerFixture {};

TEST_F(SharingHandler, InitReturnsTheReceiver) {
  SharingRequestHandler another;
  EXPECT_EQ(another.init(), &another);
}

TEST_F(SharingHandler, AllInstancesShareOneLock) {
  Mutex* const lock = gSettingsDictLock;
  ASSERT_NE(lock, nullptr);
  SharingRequestHandler::initialize();
  {
    SharingRequestHandler another;
    another.init();
    EXPECT_EQ(gSettingsDictLock, lock);
  }
  EXPECT_EQ(gSettingsDictLock, lock) << "never destroyed";
}

TEST_F(SharingHandler, ListsItsOperationsWithWhatTheyChange) {
  std::map<std::string, bool> changes;
  for (const auto& operation : handler.operations()) changes[operation.name] = operation.changes;
  EXPECT_EQ(changes.size(), handler.operations().size()) << "each once";
  EXPECT_EQ(changes, (std::map<std::string, bool>{{"getState", false},
                                                  {"getLogPaths", false},
                                                  {"readSettings", false},
                                                  {"getSharePointList", false},
                                                  {"writeSettings", true},
                                                  {"getDSNodes", false},
                                                  {"canAuthDSNode", true},
                                                  {"fileInheritACL", false},
                                                  {"startPropagate", true},
                                                  {"statusCopyPrivs", true},
                                                  {"getEffectivePerms", false}}));
}

TEST_F(SharingHandler, EveryOperationThatItListsCanBePerformed) {
  for (const auto& operation : handler.operations()) {
    try {
      handler.performOperation(operation.name, {});
    } catch (const DirectoryError& error) {
      EXPECT_EQ(operation.name, "canAuthDSNode") << error.what();
    }
  }
}

TEST_F(SharingHandler, OtherOperationsAreRefused) {
  for (const char* name :
       {"", "getstate", "getStateWithRequest", "getState ", "startServiceWithVariant"}) {
    EXPECT_THROW(handler.performOperation(name, {}), std::invalid_argument) << name;
  }
  expectLockFree();
}

TEST_F(SharingHandler, OperationByNameEqualsDirectOperation) {
  addSharePoint("a", "/srv/a");
  const Dictionary request{{"optionalArguments", Dictionary{{"path", "/srv/a"}}}};
  EXPECT_EQ(handler.performOperation("getState", request), handler.getStateWithRequest(request));
  EXPECT_EQ(handler.performOperation("getLogPaths", request),
            handler.getLogPathsWithRequest(request));
  EXPECT_EQ(handler.performOperation("readSettings", request),
            handler.readSettingsWithRequest(request));
  EXPECT_EQ(handler.performOperation("getSharePointList", request),
            handler.getSharePointListWithRequest(request));
  EXPECT_EQ(handler.performOperation("writeSettings", request),
            handler.writeSettingsWithRequest(request));
  EXPECT_EQ(handler.performOperation("getDSNodes", request),
            handler.getDSNodesWithRequest(request));
  const Dictionary local{{"dsNodeName", "/Local"}};
  EXPECT_EQ(handler.performOperation("canAuthDSNode", local),
            handler.canAuthDSNodeWithRequest(local));
  const Dictionary path{{"path", "/srv/a"}};
  EXPECT_EQ(handler.performOperation("fileInheritACL", path),
            handler.fileInheritACLWithRequest(path));
  EXPECT_EQ(handler.performOperation("getEffectivePerms", path),
            handler.getEffectivePermsWithRequest(path));
  EXPECT_EQ(handler.performOperation("statusCopyPrivs", {}),
            handler.statusCopyPrivsWithRequest({}));
  EXPECT_EQ(handler.performOperation("startPropagate", {}), handler.startPropagateWithRequest({}));
}

TEST_F(SharingHandler, TheStateIsAlwaysUnknown) {
  const Dictionary expected{{"state", "UNKNOWN"}, {"readWriteSettingsVersion", 1}};
  EXPECT_EQ(handler.performOperation("getState", {}), expected);
  addSharePoint("a", "/srv/a");
  trace.raise("openLocal", DirectoryError(5, "damaged"));
  EXPECT_EQ(handler.performOperation("getState", {{"state", "RUNNING"}}), expected);
}

TEST_F(SharingHandler, TheLogPathsAreFixed) {
  EXPECT_EQ(
      handler.performOperation("getLogPaths", {}),
      (Dictionary{{"consoleLog", "/var/tmp/console.log"}, {"sampleLog", "/var/log/system.log"}}));
}

TEST_F(SharingHandler, HasNoServiceToStartStopOrRecycle) {
  for (const Value& variant : std::vector<Value>{nullptr, "x", 1, Dictionary{{"a", 1}}}) {
    EXPECT_TRUE(handler.startServiceWithVariant(variant).isNull());
    EXPECT_TRUE(handler.stopServiceWithVariant(variant).isNull());
    EXPECT_TRUE(handler.recycleServiceWithVariant(variant).isNull());
  }
  EXPECT_TRUE(trace.calls().empty());
}

TEST_F(SharingHandler, IdleTicksReturnZero) {
  for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{2},
                                    std::numeric_limits<std::uint64_t>::max()}) {
    EXPECT_EQ(handler.doIdleAtCount(count), 0);
  }
}

// A publication object that reports its destruction in a flag that outlives it.
class Publication : public NetService {
 public:
  explicit Publication(bool& gone) : gone_(gone) {}
  ~Publication() override { gone_ = true; }
  void setDelegate(NetServiceDelegate*) override {}
  bool setTxtRecordData(const Data&) override { return true; }
  void publish() override {}
  void stop() override {}

 private:
  bool& gone_;
};

TEST_F(SharingHandler, AtFirstNothingIsPublished) { EXPECT_EQ(handler.netService(), nullptr); }

TEST_F(SharingHandler, PublicationIsKeptUntilReplaced) {
  bool firstGone = false;
  bool secondGone = false;
  auto first = std::make_shared<Publication>(firstGone);
  const NetService* const firstObject = first.get();
  handler.setNetService(std::move(first));
  EXPECT_EQ(handler.netService().get(), firstObject);
  EXPECT_FALSE(firstGone);
  handler.setNetService(std::make_shared<Publication>(secondGone));
  EXPECT_TRUE(firstGone);
  EXPECT_FALSE(secondGone);
  handler.setNetService(nullptr);
  EXPECT_TRUE(secondGone);
  EXPECT_EQ(handler.netService(), nullptr);
}

TEST_F(SharingHandler, SettingThePublicationThatItHasKeepsIt) {
  bool gone = false;
  handler.setNetService(std::make_shared<Publication>(gone));
  handler.setNetService(handler.netService());
  EXPECT_FALSE(gone);
  EXPECT_NE(handler.netService(), nullptr);
  handler.setNetService(nullptr);
  EXPECT_TRUE(gone);
}

TEST_F(SharingHandler, ThePublicationEndsWithTheHandler) {
  bool gone = false;
  {
    SharingRequestHandler another;
    another.setNetService(std::make_shared<Publication>(gone));
    EXPECT_FALSE(gone);
  }
  EXPECT_TRUE(gone);
}

TEST_F(SharingHandler, CallbacksOfThePublicationDoNothing) {
  bool gone = false;
  const auto publication = std::make_shared<Publication>(gone);
  handler.setNetService(publication);
  handler.netServiceWillPublish(*publication);
  handler.netServiceDidNotPublish(*publication, {{"error", 1}});
  handler.netServiceDidStop(*publication);
  EXPECT_EQ(handler.netService(), publication);
  EXPECT_TRUE(trace.calls().empty());
  EXPECT_TRUE(logger.lines().empty());
  handler.setNetService(nullptr);
}

}  // namespace

}  // namespace paddock
