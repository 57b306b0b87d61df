#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "paddock/plugin.h"
#include "paddock/plugin_request_handler.h"

namespace paddock {

namespace {

TEST(Context, KeepsValuesUntilTheyAreRemoved) {
  Context context;
  EXPECT_TRUE(context.get("copyPrivsPid").isNull());
  context.set("copyPrivsPid", 42);
  EXPECT_EQ(context.get("copyPrivsPid"), Value(42));
  context.remove("copyPrivsPid");
  EXPECT_TRUE(context.get("copyPrivsPid").isNull());
  context.set("key", "text");
  context.set("key", nullptr);
  EXPECT_TRUE(context.snapshot().empty());
}

TEST(Context, ReplaceDropsWhatWasThere) {
  Context context;
  context.set("old", 1);
  context.replace({{"new", 2}});
  EXPECT_EQ(context.snapshot(), (Dictionary{{"new", 2}}));
}

TEST(Context, IsTakenOncePerDirtyMarkWithoutMark) {
  Context context;
  context.set("a", 1);
  EXPECT_FALSE(context.takeDirty().has_value());
  context.set(Context::kDirtyKey, true);
  EXPECT_EQ(context.takeDirty(), (Dictionary{{"a", 1}}));
  EXPECT_FALSE(context.takeDirty().has_value());
  EXPECT_FALSE(context.snapshot().contains(Context::kDirtyKey));
}

TEST(Context, FalseDirtyMarkIsIgnored) {
  Context context;
  context.set(Context::kDirtyKey, false);
  EXPECT_FALSE(context.takeDirty().has_value());
}

TEST(Context, ServesSeveralThreads) {
  Context context;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&context, thread] {
      for (int round = 0; round < 200; ++round) {
        context.set(std::to_string(thread), round);
        context.set(Context::kDirtyKey, true);
        (void)context.takeDirty();
        (void)context.snapshot();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int thread = 0; thread < 4; ++thread) {
    EXPECT_EQ(context.get(std::to_string(thread)), Value(199));
  }
}

class PlainHandler : public PluginRequestHandler {
 public:
  std::vector<Operation> operations() const override { return {}; }
  Dictionary performOperation(std::string_view name, const Dictionary&) override {
    throw std::invalid_argument(std::string(name));
  }
};

struct FailingHandler : PlainHandler {
  FailingHandler() { throw std::runtime_error(std::string(2000, 'x')); }
};

struct OddlyFailingHandler : PlainHandler {
  OddlyFailingHandler() { throw 1; }
};

TEST(PluginRequestHandler, InitReturnsTheReceiver) {
  PlainHandler handler;
  EXPECT_EQ(handler.init(), &handler);
}

TEST(PluginRequestHandler, ServiceCallbacksReturnNull) {
  PlainHandler handler;
  EXPECT_TRUE(handler.startServiceWithVariant(1).isNull());
  EXPECT_TRUE(handler.stopServiceWithVariant(1).isNull());
  EXPECT_TRUE(handler.recycleServiceWithVariant(1).isNull());
  EXPECT_EQ(handler.doIdleAtCount(1), 0);
}

TEST(Plugin, CreatingGivesAHandler) {
  PaddockPluginResult result{nullptr, "left over"};
  createPlugin<PlainHandler>(&result);
  const std::unique_ptr<PluginRequestHandler> handler(result.handler);
  EXPECT_NE(handler, nullptr);
  EXPECT_STREQ(result.error, "");
}

TEST(Plugin, ThrowingConstructorReturnsTruncatedText) {
  PaddockPluginResult result{nullptr, ""};
  createPlugin<FailingHandler>(&result);
  EXPECT_EQ(result.handler, nullptr);
  EXPECT_EQ(std::string(result.error), std::string(sizeof result.error - 1, 'x'));
  createPlugin<OddlyFailingHandler>(&result);
  EXPECT_EQ(result.handler, nullptr);
  EXPECT_STREQ(result.error, "an exception that is not a std::exception");
}

}  // namespace

}  // namespace paddock
