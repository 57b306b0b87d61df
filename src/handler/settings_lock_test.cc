// The module's lock: what takes it, what does not, and what two threads see of each other.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "handler/settings_lock.h"
#include "paddock/request_conditions.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

using namespace std::chrono_literals;

// Long enough for a thread that may go on to finish, short enough to wait for in vain.
constexpr auto kSoon = 20s;
constexpr auto kNotYet = 100ms;

class SettingsLock : public HandlerFixture {
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

TEST_F(SettingsLock, StateAndLogPathsAnswerDuringHeldLock) {
  std::unique_lock held(*gSettingsDictLock);
  for (const char* operation : {"getState", "getLogPaths"}) {
    auto reply = start(operation);
    const bool answered = reply.wait_for(kSoon) == std::future_status::ready;
    if (!answered) held.unlock();
    ASSERT_TRUE(answered) << operation;
  }
}

TEST_F(SettingsLock, EveryOtherOperationWaitsForTheLock) {
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

TEST_F(SettingsLock, IdleTicksRunWithoutTheLock) {
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

TEST_F(SettingsLock, IsFreeWhileTheServersAreAsked) {
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

TEST_F(SettingsLock, IsHeldDuringEveryOtherServiceCall) {
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

TEST_F(SettingsLock, IsFreeAfterEveryOperation) {
  for (const auto& operation : handler.operations()) {
    handler.performOperation(operation.name, requestOf(operation.name));
    EXPECT_TRUE(lockIsFree()) << operation.name;
  }
}

TEST_F(SettingsLock, IsFreeAfterAnExceptionOfAnyKind) {
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

TEST_F(SettingsLock, IsFreeBetweenWritingAndReadingBack) {
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

TEST_F(SettingsLock, RequestsFromSeveralThreadsNeverOverlap) {
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

TEST_F(SettingsLock, WritesFromSeveralThreadsAllArrive) {
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

// With a patience of a tenth of a second.
class BoundedSettingsLock : public SettingsLock {
 protected:
  BoundedSettingsLock() {
    setSettingsLockPatience([] { return 100ms; });
  }
  ~BoundedSettingsLock() override { setSettingsLockPatience({}); }

  // What the operation says that it waits for; empty when it ran.
  std::string refusalOf(const std::string& operation) {
    try {
      handler.performOperation(operation, requestOf(operation));
    } catch (const OperationBusy& busy) {
      return busy.what();
    }
    return {};
  }
};

TEST_F(BoundedSettingsLock, EveryOperationIsRefusedAfterItsPatience) {
  const std::string path = "/srv/a";
  const SettingsLockGuard held("writeSettings", &path);
  for (const auto& operation : handler.operations()) {
    if (operation.name == "getState" || operation.name == "getLogPaths") continue;
    trace.forgetCalls();
    EXPECT_EQ(std::async(std::launch::async, [&] { return refusalOf(operation.name); }).get(),
              "the settings are in use by writeSettings of /srv/a for 0 s; nothing was done. Ask "
              "again later ([limits] lock_seconds)")
        << operation.name;
    EXPECT_TRUE(trace.calls().empty()) << operation.name;
  }
}

TEST_F(BoundedSettingsLock, UnnamedHolderIsReportedWithoutName) {
  const std::unique_lock held(*gSettingsDictLock);
  EXPECT_EQ(std::async(std::launch::async, [&] { return refusalOf("getDSNodes"); }).get(),
            "the settings are in use; nothing was done. Ask again later ([limits] lock_seconds)");
}

TEST_F(BoundedSettingsLock, HolderWithoutPathIsNamedAlone) {
  const SettingsLockGuard held("getDSNodes", nullptr);
  EXPECT_EQ(std::async(std::launch::async, [&] { return refusalOf("readSettings"); }).get(),
            "the settings are in use by getDSNodes for 0 s; nothing was done. Ask again later "
            "([limits] lock_seconds)");
}

TEST_F(BoundedSettingsLock, RefusedOperationLeavesTheLockFree) {
  {
    const SettingsLockGuard held("getDSNodes", nullptr);
    std::async(std::launch::async, [&] { return refusalOf("readSettings"); }).get();
  }
  EXPECT_TRUE(lockIsFree());
  EXPECT_EQ(refusalOf("readSettings"), "");
}

TEST_F(BoundedSettingsLock, DoneChangeIsReadBackHoweverLongThatTakes) {
  std::future<void> other;
  // Asked of the servers when the change is done, and before it is read back.
  trace.when(asksTheServers, [&](const ServiceCall&) {
    std::promise<void> taken;
    std::future<void> isTaken = taken.get_future();
    other = std::async(std::launch::async, [&taken] {
      const SettingsLockGuard held("getDSNodes", nullptr);
      taken.set_value();
      std::this_thread::sleep_for(300ms);
    });
    isTaken.wait();
    return 0;
  });
  const Dictionary reply = handler.performOperation(
      "writeSettings",
      {{"configuration",
        Dictionary{{"sharePointList", Array{Dictionary{{"path", "/srv/a"}, {"name", "x"}}}}}}});
  ASSERT_TRUE(other.valid()) << "nobody was asked";
  other.get();
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(reply.integer("readStatus"), 0);
}

}  // namespace
}  // namespace paddock
