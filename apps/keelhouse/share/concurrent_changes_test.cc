// Commands with concurrent changes of their folder by others: the repeated requests, and the
// output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kNobody = "2918733C-ACBF-4C23-AD09-B8FC0000FFFE";
constexpr const char* kNogroup = "8872134E-C1BC-44B8-8DF6-B2920000FFFE";
constexpr const char* kRoot = "2918733C-ACBF-4C23-AD09-B8FC00000000";

class MeanwhileCommands : public CommandFixture {
 protected:
  static std::string ace(const std::string& guid, int bitmap = 2) {
    return R"({"displayName":"x","guid":")" + guid + R"(","allowPermission":"YES","bitmap":)" +
           std::to_string(bitmap) + R"(,"flags":0,"isUser":0})";
  }
  static std::string privileges(const std::string& acl, const std::string& mode) {
    return R"({"path":"/srv/a","fileType":"directory","owner":"root","group":"root","privs":")" +
           mode + R"(","acl":[)" + acl + "]}";
  }
  static std::string etag(const std::string& tag) {
    return tag.empty() ? "" : "ETag: \"" + tag + "\"\r\n";
  }
  void answerRead(const std::string& acl, const std::string& tag, const std::string& mode = "750") {
    daemon_.answer(readPart("fileAccessPrivs", privileges(acl, mode)), 200, etag(tag));
  }
  void answerWritten(const std::string& acl, const std::string& tag,
                     const std::string& mode = "750") {
    daemon_.answer(writtenPart("fileAccessPrivs", privileges(acl, mode)), 200, etag(tag));
  }
  void answerAnotherState() { daemon_.answer(R"({"error":"another state"})", 412); }

  std::string head(std::size_t at) const { return daemon_.requests().at(at).head; }
};

TEST_F(MeanwhileCommands, WriteIsConditionalOnReadState) {
  answerRead("", "one");
  answerWritten(ace(kNobody), "two");
  EXPECT_EQ(run({"acl", "add", "/srv/a", "allow", "user:nobody", "list"}), 0) << error_;
  EXPECT_THAT(head(0), Not(HasSubstr("If-Match")));
  EXPECT_THAT(head(1), HasSubstr("\r\nIf-Match: \"one\"\r\n"));
  EXPECT_EQ(error_, "");
}

TEST_F(MeanwhileCommands, DaemonWithoutTagsGetsUnconditionalWrite) {
  answerRead("", "");
  answerWritten(ace(kNobody), "");
  EXPECT_EQ(run({"acl", "add", "/srv/a", "allow", "user:nobody", "list"}), 0) << error_;
  EXPECT_THAT(head(1), Not(HasSubstr("If-Match")));
}

TEST_F(MeanwhileCommands, ChangedListIsReadAndModifiedAgain) {
  answerRead("", "one");
  answerAnotherState();
  answerRead(ace(kNogroup), "two");
  answerWritten(ace(kNogroup) + "," + ace(kNobody), "three");
  EXPECT_EQ(run({"acl", "add", "/srv/a", "allow", "user:nobody", "list"}), 0) << error_;
  ASSERT_EQ(asked(), 4U);
  EXPECT_THAT(head(3), HasSubstr("If-Match: \"two\""));
  EXPECT_THAT(body(3), HasSubstr(kNogroup));
  EXPECT_EQ(error_,
            "keelhouse: note: while this was done, the ACL was changed: \"allow group:nogroup "
            "list\" was added; both changes are made\n");
}

TEST_F(MeanwhileCommands, ShiftedEntryNumbersAreAnError) {
  answerRead(ace(kNobody) + "," + ace(kNogroup), "one");
  answerAnotherState();
  answerRead(ace(kNogroup), "two");
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "1"}), 1);
  EXPECT_EQ(asked(), 3U);
  EXPECT_THAT(error_, HasSubstr("the ACL of /srv/a was changed meanwhile: \"allow user:nobody "
                                "list\" was removed; nothing was changed here\n"));
}

TEST_F(MeanwhileCommands, EntryNumbersBeforeChangeStayValid) {
  answerRead(ace(kNobody), "one");
  // Of the last entry it is asked first whether the list is complete.
  daemon_.answer(R"({"status":0,"present":true,"complete":false})");
  answerAnotherState();
  answerRead(ace(kNobody) + "," + ace(kNogroup), "two");
  answerWritten(ace(kNogroup), "three");
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "1"}), 0) << error_;
  EXPECT_THAT(body(4), Not(HasSubstr(kNobody)));
}

TEST_F(MeanwhileCommands, InsertPositionBehindChangeIsAnError) {
  answerRead(ace(kNobody) + "," + ace(kNogroup), "one");
  answerAnotherState();
  answerRead(ace(kNogroup) + "," + ace(kNobody), "two");
  EXPECT_EQ(run({"acl", "add", "--at", "2", "/srv/a", "allow", "user:root", "list"}), 1);
  EXPECT_THAT(error_, HasSubstr("their order was changed"));
}

TEST_F(MeanwhileCommands, LaterChangeByOthersIsNoFailure) {
  answerRead("", "one");
  answerWritten(ace(kRoot) + "," + ace(kNobody), "");
  EXPECT_EQ(run({"acl", "add", "/srv/a", "allow", "user:nobody", "list"}), 0) << error_;
  EXPECT_THAT(error_, HasSubstr("settings were changed again since; this is the ACL now"));
  EXPECT_THAT(out_, HasSubstr("user:root"));
}

TEST_F(MeanwhileCommands, PrivsSetReportsOverwrittenMode) {
  answerRead("", "one", "750");
  answerAnotherState();
  answerRead("", "two", "777");
  answerWritten("", "three", "700");
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--mode", "700"}), 0) << error_;
  EXPECT_EQ(error_,
            "keelhouse: note: while this was done, somebody else set the mode to 777; it is 700 "
            "now\n");
}

TEST_F(MeanwhileCommands, ShareSetAppliesToCurrentShare) {
  const auto share = [](const std::string& more) {
    return R"({"isShared":true,"path":"/srv/a","name":"a")" + more + "}";
  };
  daemon_.answer(readPart("sharePointRecord", share("")), 200, etag("one"));
  answerAnotherState();
  daemon_.answer(readPart("sharePointRecord", share(R"(,"nameOverSMB":"theirs")")), 200,
                 etag("two"));
  daemon_.answer(writtenPart("sharePointRecord", share(R"(,"nameOverSMB":"theirs")")));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--smb"}), 0) << error_;
  EXPECT_THAT(body(1), HasSubstr(R"("nameOverSMB":"a")"));
  EXPECT_THAT(body(3), HasSubstr(R"("nameOverSMB":"theirs")"));
}

TEST_F(MeanwhileCommands, ShareSetFailsAfterConcurrentAutomountChange) {
  daemon_.answer(readPart("sharePointRecord", R"({"isShared":true,"path":"/srv/a"})"), 200,
                 etag("one"));
  daemon_.answer(R"({"readStatus":0,"sharePointList":[]})");
  answerAnotherState();
  daemon_.answer(
      readPart("sharePointRecord", R"({"isShared":true,"path":"/srv/a","isAutomounted":true})"),
      200, etag("two"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--name", "b"}), 1);
  EXPECT_THAT(error_, HasSubstr("how clients automount /srv/a was changed meanwhile; nothing was "
                                "changed here\n"));
}

}  // namespace
}  // namespace paddock::keelhouse
