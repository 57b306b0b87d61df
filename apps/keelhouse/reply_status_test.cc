#include "keelhouse/reply_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

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
                  "/srv/a cannot be shared (CANNOT_SAVE_SHARE_POINT_ERR, 100076)\nA name"));
  EXPECT_THAT(
      messageOf({{"writeStatus", 17}}),
      ::testing::StartsWith("/srv/a cannot be shared: File exists (EEXIST, 17)\nChoose another"));
  EXPECT_EQ(messageOf({{"writeStatus", -2}}), "/srv/a cannot be shared (unknown status, -2)");
  EXPECT_EQ(messageOf({{"writeStatus", 1099511627776}}),
            "/srv/a cannot be shared (unknown status, 1099511627776)");
}

TEST(ReplyStatus, ofAnErrorTextIsNamedToo) {
  EXPECT_EQ(describeError("It failed", "INVALID_ACL_ERR"), "It failed (INVALID_ACL_ERR, 100059)");
  EXPECT_EQ(describeError("It failed", "Permission denied"),
            "It failed: Permission denied (EACCES, 13)");
  EXPECT_EQ(describeError("It failed", "no status at all"), "It failed: no status at all");
}

TEST(ReplyStatus, isTheDaemonsToExplain) {
  EXPECT_EQ(statusFailure("It failed", EACCES).origin(), ReportedBy::daemon);
  EXPECT_EQ(errorFailure("It failed", "no status at all").origin(), ReportedBy::daemon);
  EXPECT_EQ(failure("refused before asking").origin(), ReportedBy::keelhouse);
}

TEST(ReplyStatus, mustBeInTheReply) {
  EXPECT_EQ(messageOf({}), "/srv/a cannot be shared: the daemon's reply has no writeStatus");
}

}  // namespace
}  // namespace paddock::keelhouse
