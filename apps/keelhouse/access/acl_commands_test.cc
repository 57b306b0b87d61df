// `acl inherit` against a scripted daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string entry(const std::string& guid, int bitmap, int flags) {
  return R"({"allowPermission":"YES","bitmap":)" + std::to_string(bitmap) + R"(,"flags":)" +
         std::to_string(flags) + R"(,"guid":")" + guid + R"("})";
}

// Of the accounts nobody and nogroup, which every system has.
const std::string kOwn = entry("2918733C-ACBF-4C23-AD09-B8FC0000FFFE", 2, 0);
const std::string kInherited = entry("8872134E-C1BC-44B8-8DF6-B2920000FFFE", 4, 48);

class AclInherit : public CommandFixture {
 protected:
  static std::string privileges(const std::string& entries) {
    return R"({"path":"/srv/a","fileType":"directory","owner":"root","group":"root",)"
           R"("privs":"755","acl":[)" +
           entries + "]}";
  }
  void answerRead() { daemon_.answer(readPart("fileAccessPrivs", privileges(kOwn))); }
  void answerInherited(const std::string& entries) {
    daemon_.answer(R"({"acl":[)" + entries + "]}");
  }
};

TEST_F(AclInherit, ShowsOwnEntriesBeforeInheritedOnes) {
  answerRead();
  answerInherited(kOwn + "," + kInherited);
  EXPECT_EQ(run({"acl", "inherit", "/srv/./a/"}), 0) << error_;
  EXPECT_EQ(out_,
            "NO  ACTION  WHO            RIGHTS    INHERITANCE             NAME\n"
            "1   allow   user:nobody    list      -                       -\n"
            "2   allow   group:nogroup  add-file  file-inherit,inherited  -\n");
  EXPECT_EQ(target(1), "POST /v1/paddock_sharing/fileInheritACL");
  EXPECT_EQ(body(1), R"({"path":"/srv/a"})");
  EXPECT_EQ(asked(), 2U);
}

TEST_F(AclInherit, PrintsJsonDocument) {
  answerRead();
  answerInherited("");
  EXPECT_EQ(run({"acl", "inherit", "/srv/a", "--json"}), 0) << error_;
  EXPECT_EQ(out_, "{\n  \"acl\": [],\n  \"path\": \"/srv/a\"\n}\n");
}

TEST_F(AclInherit, ReportsMissingEntries) {
  answerRead();
  answerInherited("");
  EXPECT_EQ(run({"acl", "inherit", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "/srv/a has no ACL entries.\n");
}

TEST_F(AclInherit, AppliesAndShowsListReadBack) {
  answerRead();
  answerInherited(kOwn + "," + kInherited);
  daemon_.answer(writtenPart("fileAccessPrivs", privileges(kOwn + "," + kInherited)));
  EXPECT_EQ(run({"acl", "inherit", "/srv/a", "--apply"}), 0) << error_;
  EXPECT_EQ(body(2), R"({"configuration":{"fileAccessPrivs":{"acl":[)" + kOwn + "," + kInherited +
                         R"(]}},"optionalArguments":{"path":"/srv/a"}})");
  EXPECT_THAT(out_, HasSubstr("\n2   allow   group:nogroup  add-file  file-inherit,inherited"));
}

TEST_F(AclInherit, ReportsChangeNotAppliedByDaemon) {
  answerRead();
  answerInherited(kOwn + "," + kInherited);
  daemon_.answer(writtenPart("fileAccessPrivs", privileges(kOwn)));
  EXPECT_EQ(run({"acl", "inherit", "/srv/a", "--apply"}), 1);
  EXPECT_THAT(error_, HasSubstr("was not taken over: of 2 entries 1 read back"));
}

TEST_F(AclInherit, SkipsWriteForUnsendableEntries) {
  answerRead();
  answerInherited(kOwn + R"(,{"bitmap":2,"flags":0})");
  EXPECT_EQ(run({"acl", "inherit", "/srv/a", "--apply"}), 1);
  EXPECT_THAT(error_, HasSubstr("entry 2 is of a kind that cannot be written back"));
  EXPECT_EQ(asked(), 2U);
}

TEST_F(AclInherit, ReportsUnreadableAcl) {
  answerRead();
  daemon_.answer(R"({"error":"INVALID_ACL_ERR"})");
  EXPECT_EQ(run({"acl", "inherit", "/srv/a", "--apply"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: what /srv/a inherits cannot be read "
                                 "(INVALID_ACL_ERR, 100059)\n"));
  answerRead();
  daemon_.answer("{}");
  EXPECT_EQ(run({"acl", "inherit", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("the daemon's reply has no list"));
}

TEST_F(AclInherit, ReportsMissingPath) {
  daemon_.answer(R"({"configuration":{"fileAccessPrivs":{}},"readStatus":100056})");
  EXPECT_EQ(run({"acl", "inherit", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("FILE_NOT_FOUND_ERR"));
  EXPECT_EQ(asked(), 1U);
}

TEST_F(AclInherit, RejectsBadWordsBeforeRequest) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"acl", "inherit"}, {"acl", "inherit", ""}, {"acl", "inherit", "/a", "x"}}) {
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
  }
  EXPECT_EQ(asked(), 0U);
}

}  // namespace
}  // namespace paddock::keelhouse
