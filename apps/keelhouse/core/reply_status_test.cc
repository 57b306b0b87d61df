#include "keelhouse/core/reply_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

Failure failureOf(const Dictionary& reply) {
  try {
    requireStatus(reply, "writeStatus", "/srv/a cannot be shared");
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::failed);
    return failed;
  }
  return failure("");
}

std::string whatOf(const Dictionary& reply) { return failureOf(reply).what(); }

TEST(ReplyStatus, ReportsEveryStatusAndErrorText) {
  EXPECT_FALSE(reportsFailure({{"status", 0}, {"readStatus", 0}, {"writeStatus", 0}}));
  EXPECT_FALSE(reportsFailure({}));
  EXPECT_FALSE(reportsFailure({{"status", "completed"}}));
  EXPECT_TRUE(reportsFailure({{"status", -1}}));
  EXPECT_TRUE(reportsFailure({{"readStatus", 2}}));
  EXPECT_TRUE(reportsFailure({{"writeStatus", 100076}}));
  EXPECT_TRUE(reportsFailure({{"error", "x"}}));
  EXPECT_TRUE(reportsFailure({{"writeError", "x"}}));
}

TEST(ReplyStatus, IsReportedWithNameNumberAndAdvice) {
  EXPECT_EQ(whatOf({{"writeStatus", 0}}), "");
  EXPECT_EQ(whatOf({{"writeStatus", 28}}),
            "/srv/a cannot be shared: No space left on device (ENOSPC, 28)\n"
            "Make room on the volume, then repeat the command.");
  EXPECT_EQ(whatOf({{"writeStatus", -2}}), "/srv/a cannot be shared (a status without a name, -2)");
  EXPECT_EQ(whatOf({{"writeStatus", 1099511627776}}),
            "/srv/a cannot be shared (a status without a name, 1099511627776)");
}

TEST(ReplyStatus, KeepsGuessSeparateFromMessage) {
  const Failure notSaved = failureOf({{"writeStatus", 100076}});
  EXPECT_STREQ(notSaved.what(), "/srv/a cannot be shared (CANNOT_SAVE_SHARE_POINT_ERR, 100076)");
  EXPECT_THAT(notSaved.guess(), ::testing::StartsWith("A name may be taken"));
  const Failure taken = failureOf({{"writeStatus", 17}, {"message", "m is there"}});
  EXPECT_STREQ(taken.what(), "/srv/a cannot be shared: m is there (EEXIST, 17)");
  EXPECT_EQ(taken.guess(), "Choose another name.");
  const Failure privileges = failureOf({{"writeStatus", 100052}}).withMore("below");
  EXPECT_THAT(privileges.what(), ::testing::EndsWith("before the failure stays.\nbelow"));
  EXPECT_THAT(privileges.guess(), ::testing::StartsWith("The file system may be"));
}

TEST(ReplyStatus, OfErrorTextIsNamed) {
  EXPECT_EQ(describeError("It failed", "INVALID_ACL_ERR"), "It failed (INVALID_ACL_ERR, 100059)");
  EXPECT_EQ(describeError("It failed", "Permission denied"),
            "It failed: Permission denied (EACCES, 13)");
  EXPECT_EQ(describeError("It failed", "no status at all"), "It failed: no status at all");
}

TEST(ReplyStatus, IsAttributedToDaemon) {
  EXPECT_EQ(statusFailure("It failed", EACCES).origin(), ReportedBy::daemon);
  EXPECT_EQ(errorFailure("It failed", "no status at all").origin(), ReportedBy::daemon);
  EXPECT_EQ(failure("refused before asking").origin(), ReportedBy::keelhouse);
}

TEST(ReplyStatus, MustBeInReply) {
  EXPECT_EQ(whatOf({}), "/srv/a cannot be shared: the daemon's reply has no writeStatus");
}

TEST(TextOf, IsEmptyUnlessItIsText) {
  const Dictionary reply{{"text", "a"}, {"number", 1}};
  EXPECT_EQ(textOf(reply, "text"), "a");
  EXPECT_EQ(textOf(reply, "number"), "");
  EXPECT_EQ(textOf(reply, "missing"), "");
}

TEST(FirstValue, IsEmptyUnlessItIsText) {
  const Dictionary record{
      {"names", Array{"a", "b"}}, {"none", Array{}}, {"number", Array{1, "b"}}, {"text", "a"}};
  EXPECT_EQ(firstValue(record, "names"), "a");
  for (const char* other : {"none", "number", "text", "missing"})
    EXPECT_EQ(firstValue(record, other), "") << other;
}

}  // namespace
}  // namespace paddock::keelhouse
