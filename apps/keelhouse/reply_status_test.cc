#include "keelhouse/reply_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/failure.h"

namespace paddock::keelhouse {
namespace {

std::string messageOf(const Dictionary& reply) {
  try {
    requireStatus(reply, "writeStatus", "/srv/a cannot be shared");
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::failed);
    return failed.what();
  }
  return {};
}

TEST(ReplyStatus, reportsEveryStatusAndErrorText) {
  EXPECT_FALSE(reportsFailure({{"status", 0}, {"readStatus", 0}, {"writeStatus", 0}}));
  EXPECT_FALSE(reportsFailure({}));
  EXPECT_FALSE(reportsFailure({{"status", "completed"}}));
  EXPECT_TRUE(reportsFailure({{"status", -1}}));
  EXPECT_TRUE(reportsFailure({{"readStatus", 2}}));
  EXPECT_TRUE(reportsFailure({{"writeStatus", 100076}}));
  EXPECT_TRUE(reportsFailure({{"error", "x"}}));
  EXPECT_TRUE(reportsFailure({{"writeError", "x"}}));
}

TEST(ReplyStatus, isSaidWithItsNameItsNumberAndWhatToDo) {
  EXPECT_EQ(messageOf({{"writeStatus", 0}}), "");
  EXPECT_THAT(messageOf({{"writeStatus", 100076}}),
              ::testing::StartsWith(
                  "/srv/a cannot be shared: CANNOT_SAVE_SHARE_POINT_ERR (status 100076)\n"));
  EXPECT_THAT(messageOf({{"writeStatus", 13}}), ::testing::HasSubstr("Permission denied"));
  EXPECT_THAT(messageOf({{"writeStatus", -2}}), ::testing::HasSubstr("(status -2)"));
  EXPECT_THAT(messageOf({{"writeStatus", 1099511627776}}), ::testing::HasSubstr("1099511627776"));
}

TEST(ReplyStatus, mustBeInTheReply) {
  EXPECT_EQ(messageOf({}), "/srv/a cannot be shared: the daemon's reply has no writeStatus");
}

}  // namespace
}  // namespace paddock::keelhouse
