// `keelhouse audit` against a scripted daemon.
#include "keelhouse/audit_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;

constexpr const char* kLines =
    R"({"lines":[{"time":"T1","uid":0,"plugin":"p","operation":"o","path":"/srv/a","status":0},)"
    R"({"time":"T2","uid":4294967290,"plugin":"p","operation":"o","refused":true},)"
    R"({"time":"T3","uid":0,"plugin":"p","operation":"o","path":"a\u001bb","status":17}]})";

class AuditCommand : public CommandFixture {};

TEST_F(AuditCommand, PrintsALineForEachRequest) {
  daemon_.answer(kLines);
  EXPECT_EQ(run({"audit"}), 0) << error_;
  EXPECT_EQ(out_,
            "TIME  USER        PLUG-IN  OPERATION  OUTCOME    ABOUT\n"
            "T1    root        p        o          done       /srv/a\n"
            "T2    4294967290  p        o          refused    -\n"
            "T3    root        p        o          status 17  a\\x1Bb\n");
  EXPECT_EQ(target(0), "GET /v1/audit?limit=20");
}

TEST_F(AuditCommand, ReportsRefusalCountAndInterruptedRequests) {
  daemon_.answer(
      R"({"lines":[{"refused":true,"count":490},{"interrupted":true,"path":"/srv/a"}]})");
  EXPECT_EQ(run({"audit"}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("  refused 490 times  -\n"));
  EXPECT_THAT(out_, HasSubstr("  interrupted        /srv/a\n"));
}

TEST_F(AuditCommand, NamesPathsAndRecords) {
  daemon_.answer(
      R"({"lines":[{"paths":["/a","/b","/c"]},{"paths":["/a"]},{"name":"anna","node":"/Local"}]})");
  EXPECT_EQ(run({"audit"}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("  /a and 2 more\n"));
  EXPECT_THAT(out_, HasSubstr("  /a\n"));
  EXPECT_THAT(out_, HasSubstr("  anna of /Local\n"));
}

TEST_F(AuditCommand, AsksForAsManyAsItIsTold) {
  daemon_.answer(R"({"lines":[]})");
  EXPECT_EQ(run({"audit", "--limit", "5"}), 0) << error_;
  EXPECT_EQ(out_, "The audit log has no lines.\n");
  EXPECT_EQ(target(0), "GET /v1/audit?limit=5");
  EXPECT_EQ(run({"audit", "--limit", "0"}), 2);
  EXPECT_EQ(run({"audit", "--limit", "10001"}), 2);
}

TEST_F(AuditCommand, PrintsJson) {
  daemon_.answer(R"({"lines":[{"uid":0}]})");
  EXPECT_EQ(run({"--json", "audit"}), 0) << error_;
  EXPECT_EQ(out_, "[\n  {\n    \"uid\": 0\n  }\n]\n");
}

TEST_F(AuditCommand, ARefusalIsSaid) {
  daemon_.answer(R"({"error":"you need to be in the group paddock"})", 403);
  EXPECT_EQ(run({"audit"}), 1);
  EXPECT_THAT(error_, HasSubstr("you need to be in the group paddock"));
}

}  // namespace
}  // namespace paddock::keelhouse
