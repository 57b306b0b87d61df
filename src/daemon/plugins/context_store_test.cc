#include "daemon/plugins/context_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "paddock/sys_logger.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class ContextSaving : public testing::Test {
 protected:
  ContextSaving() {
    installLogSink([this](int, const std::string& line) { log_.push_back(line); });
  }
  ~ContextSaving() override { installLogSink(nullptr); }

  static void mark(Context& context, int value) {
    context.set("value", value);
    context.set(Context::kDirtyKey, true);
  }

  TestFolder folder_;
  std::vector<std::string> log_;
};

TEST_F(ContextSaving, GivesBackWhatWasSavedWithoutTheMark) {
  const Dictionary contents{{"pid", 7},
                            {"paths", Array{"/a", "/b"}},
                            {"on", true},
                            {"bytes", Data{{0, 255}}},
                            {"large", Value::fromUnsigned(UINT64_MAX)},
                            {"odd", "<&>\n\u00e4"}};
  {
    ContextStore store(folder_.path("context"));
    Context context;
    context.replace(contents);
    context.set(Context::kDirtyKey, true);
    store.saveIfDirty("plugin", context);
    EXPECT_EQ(context.snapshot(), contents);
  }
  EXPECT_EQ(ContextStore(folder_.path("context")).load("plugin"), contents);
  EXPECT_THAT(log_, testing::IsEmpty());
}

TEST_F(ContextSaving, AContextWithoutTheMarkIsNotWritten) {
  ContextStore store(folder_.path("context"));
  Context context;
  context.set("value", 1);
  store.saveIfDirty("plugin", context);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("context/plugin.plist")));
  EXPECT_TRUE(store.load("plugin").empty());
}

TEST_F(ContextSaving, FailureIsLoggedOnceAndMarkStays) {
  ContextStore store(folder_.path("context"));
  std::filesystem::create_directories(folder_.path("context/plugin.plist/in/the/way"));
  Context context;
  mark(context, 1);
  store.saveIfDirty("plugin", context);
  store.saveIfDirty("plugin", context);
  EXPECT_EQ(log_.size(), 1U);
  EXPECT_EQ(context.get(Context::kDirtyKey), Value(true));
  std::filesystem::remove_all(folder_.path("context/plugin.plist"));
  store.saveIfDirty("plugin", context);
  EXPECT_EQ(store.load("plugin"), (Dictionary{{"value", 1}}));
  EXPECT_TRUE(context.get(Context::kDirtyKey).isNull());
}

TEST_F(ContextSaving, TheNewestStateStaysWhenSavesOverlap) {
  ContextStore store(folder_.path("context"));
  Context context;
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        mark(context, round);
        store.saveIfDirty("plugin", context);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(store.load("plugin"), context.snapshot());
}

}  // namespace
}  // namespace paddock
