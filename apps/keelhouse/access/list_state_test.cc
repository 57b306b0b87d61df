// Complete lists in `acl` and `privs`, against a scripted daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kEntry =
    R"({"displayName":"x","guid":"2918733C-ACBF-4C23-AD09-B8FC0000FFFE","allowPermission":"YES",)"
    R"("bitmap":2,"flags":0,"isUser":0})";

class ListStateCommands : public CommandFixture {
 protected:
  static std::string privileges(const std::string& entries) {
    return R"({"path":"/srv/a","fileType":"directory","owner":"root","group":"staff",)"
           R"("privs":"754","acl":[)" +
           entries + "]}";
  }
  void answerRead(const std::string& entries) {
    daemon_.answer(readPart("fileAccessPrivs", privileges(entries)));
  }
  void answerWritten(const std::string& entries) {
    daemon_.answer(writtenPart("fileAccessPrivs", privileges(entries)));
  }
  void answerState(bool present, bool complete) {
    daemon_.answer(std::string(R"({"status":0,"present":)") + (present ? "true" : "false") +
                   R"(,"complete":)" + (complete ? "true" : "false") + "}");
  }
  std::string document(const std::string& text) {
    const std::string path = folder_.path("document " + std::to_string(++documents_));
    std::ofstream(path) << text;
    return path;
  }

  int documents_ = 0;
};

TEST_F(ListStateCommands, ShowReportsCompleteList) {
  answerRead(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "show", "/srv/a"}), 0) << error_;
  EXPECT_THAT(out_,
              AllOf(HasSubstr("1   allow   user:nobody"),
                    HasSubstr("\nThe list is complete: nothing falls to the mode, and what no "
                              "entry allows is refused.\n")));
  EXPECT_EQ(target(1), "POST /v1/paddock_files/getList");
  EXPECT_EQ(body(1), R"({"path":"/srv/a"})");
  answerRead("");
  answerState(true, true);
  EXPECT_EQ(run({"acl", "show", "/srv/a"}), 0);
  EXPECT_THAT(out_, HasSubstr("/srv/a has a complete list without entries: nobody gets in by it"));
  for (const bool present : {false, true}) {
    answerRead("");
    answerState(present, false);
    EXPECT_EQ(run({"acl", "show", "/srv/a"}), 0);
    EXPECT_EQ(out_, "/srv/a has no ACL entries.\n");
  }
}

TEST_F(ListStateCommands, DocumentsStateWhetherListIsComplete) {
  for (const char* command : {"acl", "privs"}) {
    for (const bool complete : {true, false}) {
      answerRead("");
      if (*command == 'p') daemon_.answer(R"({"status":0,"mode":"0754","uid":0,"gid":50})");
      answerState(true, complete);
      EXPECT_EQ(run({command, "show", "/srv/a", "--json"}), 0) << error_;
      EXPECT_THAT(out_, HasSubstr(complete ? R"("complete": true)" : R"("complete": false)"));
    }
    answerRead("");
    EXPECT_EQ(run({command, "show", "/srv/a", "--json"}), 0) << error_;
    EXPECT_THAT(out_, Not(HasSubstr("complete"))) << "it cannot be told";
  }
}

TEST_F(ListStateCommands, RemovingLastEntryOfCompleteListRequiresForce) {
  answerRead(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "1"}), 1);
  EXPECT_EQ(asked(), 2U) << "nothing is written";
  EXPECT_THAT(error_,
              AllOf(HasSubstr("the list of /srv/a is complete, and would go with its last entry; "
                              "nothing was changed\n"),
                    HasSubstr("its owner root can read and change, the group staff can read and "
                              "others can list names, and cannot get in.\n"),
                    HasSubstr("--force")));
  answerRead(kEntry);
  answerWritten("");
  EXPECT_EQ(run({"acl", "remove", "--force", "/srv/a", "1"}), 0) << error_;
  answerRead(kEntry);
  answerState(true, false);
  answerWritten("");
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "1"}), 0) << error_;
  answerRead(kEntry);
  daemon_.answer(R"({"status":5,"error":"Input/output error"})");
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "1"}), 1) << "it cannot be told";
  EXPECT_THAT(error_, HasSubstr("whether the list of /srv/a is complete cannot be told"));
}

TEST_F(ListStateCommands, EmptyDocumentOpensCompleteListOnlyByForce) {
  const std::string empty = document(R"({"acl":[]})");
  answerRead(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", empty}), 1);
  EXPECT_THAT(error_, HasSubstr("--force"));
  answerRead(kEntry);
  answerWritten("");
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--force", "--from", empty}), 0) << error_;
  daemon_.answer(R"({"status":0,"mode":"0754","uid":0,"gid":50})");
  answerRead(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--from", empty}), 1);
  EXPECT_THAT(error_, HasSubstr("would go with its last entry"));
}

TEST_F(ListStateCommands, SameEntriesOpenCompleteListOnlyByForce) {
  for (const char* text : {R"({"acl":[],"complete":false})", R"({"acl":[]})"}) {
    const std::string open = document(text);
    answerRead("");
    answerState(true, true);
    EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", open}), 1) << text;
    EXPECT_THAT(error_,
                AllOf(HasSubstr("the list of /srv/a is complete, and would be so no longer; "
                                "nothing was changed\n"),
                      HasSubstr("--force")));
    const std::size_t before = asked();
    answerRead("");
    answerState(true, true);
    answerWritten("");
    EXPECT_EQ(run({"acl", "set", "/srv/a", "--force", "--from", open}), 0) << error_;
    EXPECT_EQ(target(before + 2), "POST /v1/paddock_sharing/writeSettings");
    EXPECT_THAT(out_, HasSubstr("/srv/a has no ACL entries. By its mode 754 its owner root can"));
    daemon_.answer(R"({"status":0,"mode":"0754","uid":0,"gid":50})");
    answerRead("");
    answerState(true, true);
    EXPECT_EQ(run({"privs", "set", "/srv/a", "--from", open}), 1) << text;
    EXPECT_THAT(error_, HasSubstr("would be so no longer"));
  }
  const std::string same = document(
      R"({"acl":[{"guid":"2918733C-ACBF-4C23-AD09-B8FC0000FFFE","allow":true,"rights":["list"]}],)"
      R"("complete":false})");
  answerRead(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", same}), 1);
  EXPECT_THAT(error_, HasSubstr("would be so no longer"));
  const std::size_t before = asked();
  answerRead(kEntry);
  answerState(true, true);
  answerWritten("");
  answerWritten(kEntry);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--force", "--from", same}), 0) << error_;
  EXPECT_THAT(body(before + 2), HasSubstr(R"("acl":[])"));
  EXPECT_THAT(body(before + 3), HasSubstr("2918733C-ACBF-4C23-AD09-B8FC0000FFFE"));
}

TEST_F(ListStateCommands, PrivsShowReportsEmptyCompleteListBlocksEveryone) {
  answerRead("");
  daemon_.answer(R"({"status":0,"mode":"0754","uid":0,"gid":50})");
  answerState(true, true);
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("acl: no entries\n/srv/a has a complete list without entries: nobody "
                              "gets in by it"));
}

TEST_F(ListStateCommands, DocumentOfCompleteListCreatesOne) {
  const std::string whole = document(
      R"({"acl":[{"kind":"user","name":"nobody","allow":true,"rights":["list"]}],"complete":true})");
  answerRead("");
  answerWritten(kEntry);
  answerState(true, false);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", whole}), 0) << error_;
  EXPECT_EQ(target(1), "POST /v1/paddock_sharing/writeSettings");
  EXPECT_EQ(target(3), "POST /v1/paddock_files/makeComplete");
  EXPECT_EQ(body(3), R"({"empty":false,"path":"/srv/a"})");
  const std::string nobody = document(R"({"acl":[],"complete":true})");
  answerRead(kEntry);
  answerState(true, true);
  answerState(true, true);
  answerRead("");
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", nobody}), 0) << error_;
  EXPECT_EQ(body(6), R"({"empty":true,"path":"/srv/a"})");
  EXPECT_EQ(target(7), "POST /v1/paddock_sharing/readSettings") << "nothing is left to write";
  EXPECT_THAT(out_, HasSubstr("/srv/a has a complete list without entries: nobody gets in by it"));
  answerRead("");
  answerWritten(kEntry);
  answerState(true, false);
  daemon_.answer(R"({"status":30,"error":"Read-only file system"})");
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", whole}), 1);
  EXPECT_THAT(error_, HasSubstr("the entries of /srv/a are set, but the list of /srv/a cannot be "
                                "made complete: Read-only file system"));
  answerRead(kEntry);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", nobody}), 1);
  EXPECT_THAT(error_,
              HasSubstr("cannot be made complete: the plug-in paddock_files is not loaded"));
}

TEST_F(ListStateCommands, AlreadyCompleteListIsNotWritten) {
  const std::string same = document(
      R"({"acl":[{"guid":"2918733C-ACBF-4C23-AD09-B8FC0000FFFE","allow":true,"rights":["list"]}],)"
      R"("complete":true})");
  answerRead(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", same}), 0) << error_;
  EXPECT_EQ(target(1), "POST /v1/paddock_files/getList");
  EXPECT_EQ(asked(), 2U);
}

TEST_F(ListStateCommands, DocumentWithOtherEntriesKeepsListComplete) {
  const std::string other = document(
      R"({"acl":[{"kind":"user","name":"nobody","allow":true,"rights":["list"]}],"complete":false})");
  answerRead("");
  answerWritten(kEntry);
  answerState(true, true);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "--from", other}), 0) << error_;
  EXPECT_THAT(error_, HasSubstr("the list of /srv/a was complete and still is"));
}

}  // namespace
}  // namespace paddock::keelhouse
