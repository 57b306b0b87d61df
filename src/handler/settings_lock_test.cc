// The module's lock: what takes it, what does not, and what two threads see of each other.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "support/handler_fixture.h"

namespace paddock {
namespace {

using namespace std::chrono_literals;

// Long enough for a thread that may go on to finish, short enough to wait for in vain.
constexpr auto kSoon = 20s;
constexpr auto kNotYet = 100ms;

class SettingsLockTest : public HandlerFixture {
 protected:
  // Which needs a directory node to ask.
  static Dictionary requestOf(const std::string& operation) {
    return operation == "canAuthDSNode" ? Dictionary{{"dsNodeName", "/Local"}} : Dictionary();
  }
  std::future<Dictionary> start(const std::string& operation, const Dictionary& request = {}) {
    return std::async(std::launch::async, [this, operation, request] {
      return handler.performOperation(operation, request);
    });
  }
};

TEST_F(SettingsLockTest, StateAndLogPathsAreAnsweredWhileTheLockIsHeld) {
  std::unique_lock held(*gSettingsDictLock);
  for (const char* operation : {"getState", "getLogPaths"}) {
    auto reply = start(operation);
    const bool answered = reply.wait_for(kSoon) == std::future_status::ready;
    if (!answered) held.unlock();
    ASSERT_TRUE(answered) << operation;
  }
}

TEST_F(SettingsLockTest, EveryOtherOperationWaitsForTheLock) {
  for (const auto& operation : handler.operations()) {
    if (operation.name == "getState" || operation.name == "getLogPaths") continue;
    std::unique_lock held(*gSettingsDictLock);
    trace.forgetCalls();
    auto reply = start(operation.name, requestOf(operation.name));
    EXPECT_EQ(reply.wait_for(kNotYet), std::future_status::timeout) << operation.name;
    EXPECT_TRUE(trace.calls().empty()) << operation.name << " reads before it has the lock";
    held.unlock();
    ASSERT_EQ(reply.wait_for(kSoon), std::future_status::ready) << operation.name;
    reply.get();
  }
}

TEST_F(SettingsLockTest, IdleTicksRunWithoutTheLock) {
  std::unique_lock held(*gSettingsDictLock);
  auto tick = std::async(std::launch::async, [this] { return handler.doIdleAtCount(1); });
  const bool answered = tick.wait_for(kSoon) == std::future_status::ready;
  held.unlock();
  EXPECT_TRUE(answered);
  EXPECT_EQ(tick.get(), 0);
}

// What the servers make of a change is asked when the lock is free again, since they are slow.
bool asksTheServers(const ServiceCall& call) {
  return call.operation == "doCommand" && call.subject == "paddock_services";
}
bool isOfTheModule(const ServiceCall& call) { return !asksTheServers(call); }

TEST_F(SettingsLockTest, IsFreeWhileTheServersAreAsked) {
  int calls = 0;
  trace.when(asksTheServers, [&](const ServiceCall&) {
    ++calls;
    EXPECT_TRUE(lockIsFree());
    return 0;
  });
  handler.performOperation("writeSettings", requestOf("writeSettings"));
  handler.performOperation(
      "writeSettings",
      {{"configuration",
        Dictionary{{"sharePointList", Array{Dictionary{{"path", "/srv/b"}, {"name", "b"}}}}}}});
  EXPECT_GE(calls, 1);
}

TEST_F(SettingsLockTest, IsHeldDuringEveryOtherCallOfAService) {
  addSharePoint("a", "/srv/a");
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  std::atomic<int> free = 0;
  std::atomic<int> calls = 0;
  trace.when(isOfTheModule, [&](const ServiceCall&) {
    ++calls;
    if (lockIsFree()) ++free;
    return 0;
  });
  handler.performOperation("getSharePointList", {});
  handler.performOperation("readSettings", {});
  handler.performOperation("readSettings", {{"optionalArguments", Dictionary{{"path", "/srv/a"}}}});
  handler.performOperation(
      "writeSettings",
      {{"optionalArguments", Dictionary{{"path", "/srv/b"}}},
       {"configuration",
        Dictionary{{"sharePointRecord", Dictionary{{"path", "/srv/b"}, {"name", "b"}}}}}});
  EXPECT_GT(calls, 30);
  EXPECT_EQ(free, 0);
}

TEST_F(SettingsLockTest, IsFreeAfterEveryOperation) {
  for (const auto& operation : handler.operations()) {
    handler.performOperation(operation.name, requestOf(operation.name));
    EXPECT_TRUE(lockIsFree()) << operation.name;
  }
}

TEST_F(SettingsLockTest, IsFreeAfterAnExceptionOfAnyKind) {
  addSharePoint("a", "/srv/a");
  const Dictionary folder{{"optionalArguments", Dictionary{{"path", "/srv/a"}}}};
  trace.raise("getAllAttributesAndValues", DirectoryError(5, "damaged"), 1);
  EXPECT_THROW(handler.performOperation("readSettings", folder), DirectoryError);
  expectLockFree();
  trace.raise("getAllAttributesAndValues", 42, 1);
  EXPECT_THROW(handler.performOperation("readSettings", folder), int);
  expectLockFree();
  trace.raise("getAllAttributesAndValues", std::bad_alloc(), 1);
  EXPECT_THROW(handler.performOperation("writeSettings", folder), std::bad_alloc);
  expectLockFree();
}

TEST_F(SettingsLockTest, IsFreeBetweenWritingAndReadingBack) {
  // Another request that waits for the lock may run between the two.
  std::promise<void> written;
  trace.when(
      "removeAttribute",
      [&](const ServiceCall&) {
        written.set_value();
        return 0;
      },
      1);
  auto reply = start(
      "writeSettings",
      {{"configuration",
        Dictionary{{"sharePointList", Array{Dictionary{{"path", "/srv/a"}, {"name", "a"}}}}}}});
  written.get_future().wait();
  EXPECT_EQ(handler.performOperation("getSharePointList", {}).integer("readStatus"), 0);
  EXPECT_EQ(reply.get().integer("writeStatus"), 0);
}

// Counts the threads that are inside a service at the same time.
class Overlap {
 public:
  int operator()(const ServiceCall&) {
    if (++inside_ > 1) overlapped_ = true;
    std::this_thread::yield();
    --inside_;
    return 0;
  }
  bool overlapped() const { return overlapped_; }

 private:
  std::atomic<int> inside_ = 0;
  std::atomic<bool> overlapped_ = false;
};

TEST_F(SettingsLockTest, RequestsFromSeveralThreadsNeverOverlap) {
  Overlap overlap;
  trace.when(isOfTheModule, [&overlap](const ServiceCall& call) { return overlap(call); });
  constexpr int kThreads = 6;
  constexpr int kRounds = 20;
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) {
    threads.emplace_back([this, id] {
      const std::string name = "s" + std::to_string(id);
      const Dictionary folder{{"path", "/srv/" + name}};
      for (int round = 0; round < kRounds; ++round) {
        const bool shared = round % 2 == 0;
        handler.performOperation(
            "writeSettings",
            {{"optionalArguments", folder},
             {"configuration",
              Dictionary{
                  {"sharePointRecord", Dictionary{{"path", "/srv/" + name},
                                                  {"name", name},
                                                  {"isShared", shared},
                                                  {"nfsExportRecord", exportTo("*", {"rw"})}}}}}});
        handler.performOperation("getSharePointList", {});
        handler.performOperation("getState", {});
        handler.performOperation("readSettings", {{"optionalArguments", folder}});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(overlap.overlapped());
  EXPECT_TRUE(lockIsFree());
}

TEST_F(SettingsLockTest, WritesFromSeveralThreadsAllArrive) {
  constexpr int kThreads = 6;
  constexpr int kEach = 10;
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) {
    threads.emplace_back([this, id] {
      for (int i = 0; i < kEach; ++i) {
        const std::string path = "/srv/" + std::to_string(id) + "/" + std::to_string(i);
        handler.performOperation(
            "writeSettings",
            {{"configuration",
              Dictionary{{"sharePointList",
                          Array{Dictionary{{"path", path},
                                           {"name", "x"},
                                           {"nfsExportRecord", exportTo("*", {"rw"})}}}}}}});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const Dictionary reply = handler.performOperation("getSharePointList", {});
  ASSERT_NE(reply.array("sharePointList"), nullptr);
  EXPECT_EQ(reply.array("sharePointList")->size(), static_cast<std::size_t>(kThreads * kEach));
  for (const Value& sharePoint : *reply.array("sharePointList")) {
    EXPECT_NE(sharePoint.dictionary()->dictionary("nfsExportRecord"), nullptr);
  }
}

}  // namespace
}  // namespace paddock
