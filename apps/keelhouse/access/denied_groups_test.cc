// What is noted of denied groups after a list was changed, and `acl strict`, against a scripted
// daemon.
#include "keelhouse/access/denied_groups.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kDeniedNogroup =
    R"({"acl":[{"guid":"8872134E-C1BC-44B8-8DF6-B2920000FFFE","allowPermission":"NO",)"
    R"("bitmap":2698,"flags":96,"isUser":1,"displayName":"nogroup"}]})";
constexpr const char* kNamedDenial =
    R"({"acl":[{"guid":"2918733C-ACBF-4C23-AD09-B8FC0000FFFE","allowPermission":"NO",)"
    R"("bitmap":2698,"flags":96,"isUser":0,"displayName":"nobody"}]})";
constexpr const char* kAllowedNogroup =
    R"({"acl":[{"guid":"8872134E-C1BC-44B8-8DF6-B2920000FFFE","allowPermission":"YES",)"
    R"("bitmap":2698,"flags":0,"isUser":1,"displayName":"nogroup"}]})";

std::string denial(const std::string& people, int count) {
  return R"({"number":1,"gid":65534,"group":"nogroup","people":[)" + people + R"(],"count":)" +
         std::to_string(count) + "}";
}
std::string denied(const std::string& denials, const std::string& more = R"("strict":false)") {
  return R"({"status":0,"denials":[)" + denials + "]," + more + "}";
}

class DeniedGroups : public CommandFixture {};

TEST_F(DeniedGroups, AdmittedMembersAreNamedWithBlockingCommand) {
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(denied(denial(R"("anna","bert")", 2)));
  EXPECT_EQ(run({"acl", "set", "/srv/a b", "deny group:nogroup read:inherit"}), 0) << error_;
  EXPECT_EQ(target(1), "POST /v1/paddock_denials/getDenied");
  EXPECT_EQ(body(1), R"({"path":"/srv/a b"})");
  EXPECT_EQ(
      error_,
      "keelhouse: entry 1 denies group:nogroup, which the kernel cannot say: locally and over "
      "NFS it still lets in anna, bert; SMB refuses.\n"
      "To keep them out at every door: keelhouse acl add --at 1 '/srv/a b' "
      "'deny user:anna read:inherit' 'deny user:bert read:inherit'\n"
      "To keep out whoever is in the group, also later: keelhouse acl strict '/srv/a b'\n");
}

TEST_F(DeniedGroups, ManyPeopleAreBounded) {
  std::string people;
  for (int at = 0; at < 47; ++at) {
    people += (at == 0 ? "\"p" : ",\"p") + std::to_string(at) + "\"";
  }
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(denied(denial(people, 47)));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_THAT(error_, HasSubstr("lets in p0, p1, p2, p3, p4, p5, p6, p7, p8, p9 and 37 more; SMB"));
  EXPECT_THAT(error_, ::testing::Not(HasSubstr("acl add")));
  EXPECT_THAT(error_, HasSubstr("keelhouse acl strict /srv/a\n"));
}

TEST_F(DeniedGroups, OwnerInDeniedGroupIsReferredToMode) {
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(
      denied(R"({"number":1,"gid":65534,"group":"nogroup","people":[],"count":0,"owner":"carl"})"));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_EQ(error_,
            "keelhouse: carl is in group:nogroup, which entry 1 denies, and is the owner: locally "
            "and over NFS the mode lets them in (keelhouse privs set).\n");
}

TEST_F(DeniedGroups, NoNoteWithoutAdmittedMembersOrDeniedGroup) {
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(denied(""));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_THAT(error_, IsEmpty());
  daemon_.answer(writtenPart("fileAccessPrivs", kAllowedNogroup));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "allow group:nogroup read"}), 0);
  EXPECT_THAT(error_, IsEmpty());
  EXPECT_EQ(asked(), 3U);
}

TEST_F(DeniedGroups, UnknownDenialsAreReportedAndChangeSucceeds) {
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_THAT(error_, HasSubstr("cannot be told: the plug-in paddock_denials is not loaded.\n"));
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(R"({"status":110,"message":"the groups of anna cannot be found"})");
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_THAT(error_, HasSubstr("cannot be told: the groups of anna cannot be found.\n"));
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.hangUp();
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_THAT(error_, HasSubstr("cannot be told: the daemon closed the connection"));
}

TEST_F(DeniedGroups, AStrictListStaysSoAfterAChange) {
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(denied("", R"("strict":true)"));
  daemon_.answer(denied("", R"("strict":true,"written":1)"));
  // The table has the denial that was added.
  daemon_.answer(readPart("fileAccessPrivs", kNamedDenial));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny group:nogroup read:inherit"}), 0);
  EXPECT_THAT(out_, HasSubstr("deny    user:nobody"));
  EXPECT_EQ(target(2), "POST /v1/paddock_denials/setStrict");
  EXPECT_EQ(body(2), R"({"path":"/srv/a","strict":true})");
  EXPECT_EQ(error_,
            "keelhouse: the list of /srv/a is kept strict: 1 denial by name for groups, brought up "
            "to date once a day.\n");
}

TEST_F(DeniedGroups, StrictOptionPrintsResultingList) {
  daemon_.answer(writtenPart("fileAccessPrivs", kDeniedNogroup));
  daemon_.answer(denied(denial(R"("anna")", 1)));
  daemon_.answer(denied("", R"("strict":true,"written":2)"));
  daemon_.answer(readPart("fileAccessPrivs", kDeniedNogroup));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--strict", "deny group:nogroup read:inherit"}), 0)
      << error_;
  EXPECT_EQ(
      error_,
      "keelhouse: the list of /srv/a is kept strict: 2 denials by name for groups, brought up "
      "to date once a day.\n");
  EXPECT_THAT(out_, HasSubstr("\n1   deny    group:nogroup"));
  EXPECT_EQ(out_.find("NO  ACTION"), out_.rfind("NO  ACTION")) << out_;
}

TEST_F(DeniedGroups, StrictIsSwitchedOnAndOff) {
  daemon_.answer(denied(denial(R"("anna")", 1), R"("strict":true,"written":1)"));
  EXPECT_EQ(run({"acl", "strict", "/srv/a"}), 0) << error_;
  EXPECT_THAT(error_, HasSubstr("1 denial by name"));
  EXPECT_THAT(error_, HasSubstr("still lets in anna; SMB refuses.\n"));
  daemon_.answer(denied("", R"("strict":false)"));
  EXPECT_EQ(run({"acl", "strict", "/srv/a", "--off"}), 0);
  EXPECT_EQ(error_, "keelhouse: the list of /srv/a is not kept strict; its entries stay.\n");
  daemon_.answer(denied("", R"("strict":false)"));
  EXPECT_EQ(run({"acl", "strict", "/srv/a"}), 0);
  EXPECT_THAT(error_, HasSubstr("denies no group"));
  daemon_.answer(R"({"status":7,"message":"the list would have 900 entries"})");
  EXPECT_EQ(run({"acl", "strict", "/srv/a"}), 1);
  EXPECT_EQ(error_,
            "keelhouse: the list of /srv/a cannot be kept strict: the list would have 900 entries "
            "(E2BIG, 7)\n");
  EXPECT_EQ(run({"acl", "strict", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("the plug-in paddock_denials is not loaded"));
}

}  // namespace
}  // namespace paddock::keelhouse
