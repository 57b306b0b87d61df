#include "handler/sharing_request_handler.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <stdexcept>

#include "support/handler_fixture.h"

namespace paddock {
namespace {

class SharingRequestHandlerTest : public HandlerFixture {};

TEST_F(SharingRequestHandlerTest, InitReturnsTheReceiver) {
  SharingRequestHandler another;
  EXPECT_EQ(another.init(), &another);
}

TEST_F(SharingRequestHandlerTest, TheLockIsMadeOnceAndSharedByAllInstances) {
  std::mutex* const lock = gSettingsDictLock;
  ASSERT_NE(lock, nullptr);
  SharingRequestHandler::initialize();
  {
    SharingRequestHandler another;
    another.init();
    EXPECT_EQ(gSettingsDictLock, lock);
  }
  EXPECT_EQ(gSettingsDictLock, lock) << "never destroyed";
}

TEST_F(SharingRequestHandlerTest, ListsItsOperationsWithWhatTheyChange) {
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

TEST_F(SharingRequestHandlerTest, EveryOperationThatItListsCanBePerformed) {
  for (const auto& operation : handler.operations()) {
    try {
      handler.performOperation(operation.name, {});
    } catch (const DirectoryError& error) {
      EXPECT_EQ(operation.name, "canAuthDSNode") << error.what();
    }
  }
}

TEST_F(SharingRequestHandlerTest, OtherOperationsAreRefused) {
  for (const char* name :
       {"", "getstate", "getStateWithRequest", "getState ", "startServiceWithVariant"}) {
    EXPECT_THROW(handler.performOperation(name, {}), std::invalid_argument) << name;
  }
  expectLockFree();
}

TEST_F(SharingRequestHandlerTest, AnOperationByItsNameIsTheOperationItself) {
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

TEST_F(SharingRequestHandlerTest, TheStateIsAlwaysUnknown) {
  const Dictionary expected{{"state", "UNKNOWN"}, {"readWriteSettingsVersion", 1}};
  EXPECT_EQ(handler.performOperation("getState", {}), expected);
  addSharePoint("a", "/srv/a");
  trace.raise("openLocal", DirectoryError(5, "damaged"));
  EXPECT_EQ(handler.performOperation("getState", {{"state", "RUNNING"}}), expected);
}

TEST_F(SharingRequestHandlerTest, TheLogPathsAreFixed) {
  EXPECT_EQ(
      handler.performOperation("getLogPaths", {}),
      (Dictionary{{"consoleLog", "/var/tmp/console.log"}, {"sampleLog", "/var/log/system.log"}}));
}

TEST_F(SharingRequestHandlerTest, ThereIsNoServiceToStartStopOrRecycle) {
  for (const Value& variant : std::vector<Value>{nullptr, "x", 1, Dictionary{{"a", 1}}}) {
    EXPECT_TRUE(handler.startServiceWithVariant(variant).isNull());
    EXPECT_TRUE(handler.stopServiceWithVariant(variant).isNull());
    EXPECT_TRUE(handler.recycleServiceWithVariant(variant).isNull());
  }
  EXPECT_TRUE(trace.calls().empty());
}

TEST_F(SharingRequestHandlerTest, IdleTicksReturnZero) {
  for (const std::uint64_t count : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{2},
                                    std::numeric_limits<std::uint64_t>::max()}) {
    EXPECT_EQ(handler.doIdleAtCount(count), 0);
  }
}

// A publication object that says when it is let go of, to somebody who outlives it.
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

TEST_F(SharingRequestHandlerTest, AtFirstNothingIsPublished) {
  EXPECT_EQ(handler.netService(), nullptr);
}

TEST_F(SharingRequestHandlerTest, ThePublicationIsKeptUntilAnotherTakesItsPlace) {
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

TEST_F(SharingRequestHandlerTest, SettingThePublicationThatItHasKeepsIt) {
  bool gone = false;
  handler.setNetService(std::make_shared<Publication>(gone));
  handler.setNetService(handler.netService());
  EXPECT_FALSE(gone);
  EXPECT_NE(handler.netService(), nullptr);
  handler.setNetService(nullptr);
  EXPECT_TRUE(gone);
}

TEST_F(SharingRequestHandlerTest, ThePublicationEndsWithTheHandler) {
  bool gone = false;
  {
    SharingRequestHandler another;
    another.setNetService(std::make_shared<Publication>(gone));
    EXPECT_FALSE(gone);
  }
  EXPECT_TRUE(gone);
}

TEST_F(SharingRequestHandlerTest, CallbacksOfThePublicationDoNothing) {
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
