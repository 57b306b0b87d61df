#include "daemon/audit/refusal_rate.h"

#include <gtest/gtest.h>

#include <numeric>

namespace paddock {
namespace {

using std::chrono::milliseconds;

class RefusalCounting : public ::testing::Test {
 protected:
  AuditEntry entryOf(uid_t user) const {
    AuditEntry entry;
    entry.time =
        std::chrono::system_clock::time_point(std::chrono::hours(1)) +
        std::chrono::duration_cast<std::chrono::system_clock::duration>(now_.time_since_epoch());
    entry.request = "r-" + std::to_string(user);
    entry.peer.uid = user;
    entry.plugin = "paddock_sharing";
    entry.operation = "writeSettings";
    return entry;
  }
  // How many of so many refusals, one a millisecond, have lines of their own.
  std::size_t refuse(std::size_t count, uid_t user = 1000) {
    std::size_t lines = 0;
    for (std::size_t done = 0; done < count; ++done, now_ += milliseconds(1))
      if (rate_.take(entryOf(user), now_)) ++lines;
    return lines;
  }
  static std::size_t counted(const std::vector<AuditEntry>& lines) {
    return std::accumulate(lines.begin(), lines.end(), std::size_t{0},
                           [](std::size_t sum, const AuditEntry& one) { return sum + one.count; });
  }

  RefusalRate rate_;
  RefusalRate::Clock::time_point now_{std::chrono::hours(1)};
};

TEST_F(RefusalCounting, RefusalsBeyondTenPerSecondShareOneLine) {
  EXPECT_EQ(refuse(500), 10U);
  EXPECT_TRUE(rate_.due(now_).empty());
  now_ += milliseconds(500);
  const auto lines = rate_.due(now_);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].count, 490U);
  EXPECT_EQ(lines[0].peer.uid, 1000U);
  EXPECT_EQ(lines[0].operation, "writeSettings");
  EXPECT_EQ(lines[0].duration, milliseconds(489));
  EXPECT_TRUE(rate_.due(now_).empty());
  EXPECT_EQ(refuse(500), 10U);
}

TEST_F(RefusalCounting, AFewAreNotCountedTogether) {
  EXPECT_EQ(refuse(10), 10U);
  now_ += milliseconds(1000);
  EXPECT_TRUE(rate_.due(now_).empty());
}

TEST_F(RefusalCounting, EachUserIsCountedApart) {
  EXPECT_EQ(refuse(20, 1000), 10U);
  EXPECT_EQ(refuse(20, 1001), 10U);
  EXPECT_EQ(counted(rate_.all()), 20U);
}

// An owner of many uids (a range for containers) gets no larger share of the disk.
TEST_F(RefusalCounting, ThousandsOfUsersStayBoundedWithoutLoss) {
  std::size_t own = 0;
  const auto start = now_;
  for (uid_t user = 100000; user < 110000; ++user) own += refuse(1, user);
  EXPECT_LE(own, RefusalRate::kLinesInAll * 10);  // ten seconds of them
  EXPECT_EQ(now_ - start, std::chrono::seconds(10));
  const auto lines = rate_.all();
  EXPECT_LE(lines.size(), RefusalRate::kMostUsers + 1);
  EXPECT_EQ(own + counted(lines), 10000U);
  EXPECT_TRUE(lines.back().ofSeveralUsers);
}

TEST_F(RefusalCounting, EndReportsEverythingCounted) {
  refuse(15);
  const auto lines = rate_.all();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].count, 5U);
  EXPECT_TRUE(rate_.all().empty());
}

}  // namespace
}  // namespace paddock
