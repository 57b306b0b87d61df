#include "paddock/context.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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

TEST(Context, IsTakenOncePerDirtyMarkAndWithoutIt) {
  Context context;
  context.set("a", 1);
  EXPECT_FALSE(context.takeDirty().has_value());
  context.set(Context::kDirtyKey, true);
  EXPECT_EQ(context.takeDirty(), (Dictionary{{"a", 1}}));
  EXPECT_FALSE(context.takeDirty().has_value());
  EXPECT_FALSE(context.snapshot().contains(Context::kDirtyKey));
}

TEST(Context, ADirtyMarkThatReadsAsFalseIsNoMark) {
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

}  // namespace
}  // namespace paddock
