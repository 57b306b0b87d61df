#include "quotascan/scan_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "base/mutex.h"

namespace paddock::quotascan {

namespace {

FileOutcome outcomeOf(QuotaType type, std::uint32_t entries) {
  FileOutcome outcome;
  outcome.type = type;
  outcome.table.entries = entries;
  outcome.table.slots = 2048;
  return outcome;
}

TEST(Summary, IsALineForAPerson) {
  EXPECT_EQ(summaryLine("/vol", {{outcomeOf(kUserQuota, 12)}, 1234567}),
            "/vol: 12 users brought up to date, 1,234,567 objects counted");
  EXPECT_EQ(summaryLine("/vol", {{outcomeOf(kUserQuota, 1), outcomeOf(kGroupQuota, 0)}, 999}),
            "/vol: 1 user and 0 groups brought up to date, 999 objects counted");
}

TEST(Summary, NamesFigureSourceAndGrownTable) {
  FileOutcome users = outcomeOf(kUserQuota, 2);
  users.byKernel = true;
  FileOutcome groups = outcomeOf(kGroupQuota, 3000);
  groups.table.isGrown = true;
  groups.table.slots = 4096;
  EXPECT_EQ(summaryLine("/vol", {{users, groups}, std::nullopt}),
            "/vol: 2 users (as the kernel counts them) and 3,000 groups (table grown to 4,096 "
            "slots) brought up to date");
  EXPECT_EQ(summaryJson({{users, groups}, std::nullopt}),
            R"({"users": {"entries": 2, "slots": 2048, "grown": false, "countedBy": "kernel"}, )"
            R"("groups": {"entries": 3000, "slots": 4096, "grown": true, "countedBy": "walk"}})");
}

TEST(Summary, LeavesOutWhatFailed) {
  FileOutcome users = outcomeOf(kUserQuota, 2);
  users.failure = "it is broken";
  EXPECT_EQ(summaryLine("/vol", {{users}, std::nullopt}), "");
  EXPECT_EQ(summaryJson({{users}, std::nullopt}), "{}");
  EXPECT_EQ(summaryJson({{users, outcomeOf(kGroupQuota, 1)}, 5}),
            R"({"groups": {"entries": 1, "slots": 2048, "grown": false, "countedBy": "walk"}, )"
            R"("objects": 5})");
}

TEST(Summary, GroupsDigits) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(18446744073709551615U), "18,446,744,073,709,551,615");
}

using ::testing::EndsWith;
using ::testing::StartsWith;

// A stream that signals when something was written to it.
class WatchedText : public std::stringbuf {
 public:
  void awaitText() {
    MutexLock lock(mutex_);
    while (!isWritten_) written_.wait(mutex_);
  }

 protected:
  int sync() override {
    const MutexLock lock(mutex_);
    isWritten_ = true;
    written_.notify_one();
    return 0;
  }

 private:
  Mutex mutex_;
  ConditionVariable written_;
  bool isWritten_ PADDOCK_GUARDED_BY(mutex_) = false;
};

TEST(Progress, ShowsCountAndErasesLineAtEnd) {
  WatchedText text;
  std::ostream terminal(&text);
  const std::atomic<std::uint64_t> objects = 12345;
  {
    const Progress progress(terminal, objects);
    text.awaitText();
  }
  EXPECT_THAT(text.str(), StartsWith("\r\x1B[K12,345 objects counted"));
  EXPECT_THAT(text.str(), EndsWith("\r\x1B[K"));
}

}  // namespace

}  // namespace paddock::quotascan
