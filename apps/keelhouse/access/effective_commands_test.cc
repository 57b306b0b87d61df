// `keelhouse effective` and `keelhouse who` against a scripted daemon and a program of the test's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;

constexpr const char* kPlace =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
constexpr const char* kFolderPart = R"({"fileType":"directory","acl":[]})";

class EffectiveCommands : public CommandFixture {
 protected:
  void answerBitmap(const std::string& bitmap) {
    daemon_.answer(readPart("fileAccessPrivs", kFolderPart));
    daemon_.answer(R"({"bitmap":)" + bitmap + R"(,"path":"/srv/a"})");
  }
  // A tree whose program is the script.
  void installScript(const std::string& text) {
    const std::string program = folder_.path("tree") + kPlace;
    std::filesystem::create_directories(std::filesystem::path(program).parent_path());
    writeWholeFile(program, "#!/bin/sh\n" + text);
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  }
  // The scripted daemon is that of the tree.
  void listenInTree() {
    std::filesystem::create_directories(folder_.path("tree/run/paddock"));
    std::filesystem::create_symlink(daemon_.socketPath(),
                                    folder_.path("tree/run/paddock/paddockd.sock"));
  }
  int runInTree(std::vector<std::string> words) {
    words.insert(words.begin(), {"--root", folder_.path("tree")});
    return runAsIs(words);
  }
};

// The same, where a program is run.
class EffectivePrograms : public EffectiveCommands {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root is told by the program";
  }
};

TEST_F(EffectiveCommands, EffectivePrintsTheRightsInWords) {
  answerBitmap("2178");
  EXPECT_EQ(run({"effective", "/srv/a", "root"}), 0) << error_;
  EXPECT_EQ(out_, "list,read-attributes,read-security\n");
  EXPECT_EQ(error_, "");
  EXPECT_EQ(target(1), "POST /v1/paddock_sharing/getEffectivePerms");
  EXPECT_EQ(body(1), R"({"path":"/srv/a","uid":0})");
}

TEST_F(EffectiveCommands, AUserMayBeANumber) {
  answerBitmap("2");
  EXPECT_EQ(run({"effective", "/srv/a", "4294967295"}), 0) << error_;
  EXPECT_EQ(body(1), R"({"path":"/srv/a","uid":4294967295})");
}

TEST_F(EffectiveCommands, UserKnownOnlyToDirectoryNodeIsFound) {
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeStandard:RecordName":["paddock-zoe"],)"
                 R"("dsAttrTypeStandard:UniqueID":["70001"]}})");
  answerBitmap("2");
  EXPECT_EQ(run({"effective", "/srv/a", "paddock-zoe"}), 0) << error_;
  EXPECT_EQ(target(0), "POST /v1/paddock_directory/getRecord");
  EXPECT_EQ(body(2), R"({"path":"/srv/a","uid":70001})");
}

TEST_F(EffectiveCommands, AUserWhomNobodyKnowsIsAnError) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"effective", "/srv/a", "paddock-zoe"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("paddock-zoe"));
}

TEST_F(EffectiveCommands, EffectivePrintsJson) {
  answerBitmap("2");
  EXPECT_EQ(run({"--json", "effective", "/srv/a", "root"}), 0) << error_;
  EXPECT_EQ(out_, "{\n  \"bitmap\": 2,\n  \"path\": \"/srv/a\",\n  \"uid\": 0\n}\n");
}

TEST_F(EffectiveCommands, EmptyUserAndSignedNumberAreRejected) {
  EXPECT_EQ(run({"effective", "/srv/a", ""}), 2);
  EXPECT_THAT(error_, HasSubstr("the user's name is empty"));
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"effective", "/srv/a", "+5"}), 1);
  EXPECT_THAT(error_, HasSubstr("there is no user +5"));
}

TEST_F(EffectiveCommands, UnreadablePathFails) {
  daemon_.answer(readPart("fileAccessPrivs", R"({"posixErr":"No such file or directory"})", 2));
  EXPECT_EQ(run({"effective", "/srv/a", "root"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("No such file"));
}

TEST_F(EffectiveCommands, DamagedListFails) {
  daemon_.answer(readPart("fileAccessPrivs",
                          R"({"fileType":"directory","aclErr":"INVALID_ACL_ERR"})", 100059));
  EXPECT_EQ(run({"effective", "/srv/a", "root"}), 1);
  EXPECT_THAT(error_, HasSubstr("INVALID_ACL_ERR"));
}

TEST_F(EffectiveCommands, AReplyWithoutABitmapIsAnError) {
  daemon_.answer(readPart("fileAccessPrivs", kFolderPart));
  daemon_.answer("{}");
  EXPECT_EQ(run({"effective", "/srv/a", "root"}), 1);
  EXPECT_THAT(error_, HasSubstr("no bitmap"));
}

TEST_F(EffectiveCommands, AUserAndAPathAreNeeded) {
  EXPECT_EQ(run({"effective"}), 2);
  EXPECT_EQ(run({"effective", "/srv/a"}), 2);
  EXPECT_EQ(run({"effective", "", "root"}), 2);
  EXPECT_EQ(run({"who"}), 2);
}

TEST_F(EffectivePrograms, EmptyDaemonReplyIsVerifiedByProgram) {
  installScript("echo 0\n");
  listenInTree();
  answerBitmap("0");
  EXPECT_EQ(runInTree({"effective", "/srv/a", "root"}), 0) << error_;
  EXPECT_EQ(out_, "0\nnone\n");
  EXPECT_EQ(error_, "");
}

TEST_F(EffectivePrograms, PathAnswerPrecedesRights) {
  installScript("echo \"$@\"\n");
  listenInTree();
  answerBitmap("2");
  EXPECT_EQ(runInTree({"effective", "/srv/a", "7"}), 0) << error_;
  EXPECT_EQ(out_, "--answer -p /srv/a -u 7\nlist\n");
}

TEST_F(EffectiveCommands, TheDaemonIsAskedForTheAnswerFirst) {
  answerBitmap("2");
  daemon_.answer(R"({"status":4,"output":"Cannot tell: why\n","errors":""})");
  EXPECT_EQ(run({"effective", "/srv/a", "7"}), 4) << error_;
  EXPECT_EQ(out_, "Cannot tell: why\nlist\n");
  EXPECT_EQ(target(2), "POST /v1/paddock_access/answer");
  EXPECT_EQ(body(2), R"({"path":"/srv/a","uid":7})");
}

TEST_F(EffectivePrograms, JsonIsTheProgramsOwn) {
  installScript("echo \"$@\"\n");
  listenInTree();
  answerBitmap("2");
  EXPECT_EQ(runInTree({"--json", "effective", "/srv/a", "7"}), 0) << error_;
  EXPECT_EQ(out_, "--json --explain -p /srv/a -u 7\n");
}

TEST_F(EffectivePrograms, UndecidedAnswerHasOwnExitStatus) {
  installScript("echo cannot tell; exit 4\n");
  listenInTree();
  answerBitmap("2");
  EXPECT_EQ(runInTree({"effective", "/srv/a", "7"}), 4) << error_;
  EXPECT_EQ(out_, "cannot tell\nlist\n");
  EXPECT_EQ(runInTree({"effective", "/srv/a", "7", "--explain"}), 4);
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 4);
}

TEST_F(EffectivePrograms, FailedVerificationPrintsNoRights) {
  installScript("exit 1\n");
  listenInTree();
  answerBitmap("0");
  EXPECT_EQ(runInTree({"effective", "/srv/a", "root"}), 1);
  EXPECT_EQ(out_, "");
}

TEST_F(EffectiveCommands, DaemonProgramReplyIsForwarded) {
  daemon_.answer(
      R"({"status":4,"output":"cannot tell\n","errors":"effectiveprivs: a\u001b[1m\n"})");
  EXPECT_EQ(run({"who", "/srv/a"}), 4);
  EXPECT_EQ(out_, "cannot tell\n");
  EXPECT_EQ(error_, "effectiveprivs: a\\x1B[1m\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_access/who");
  EXPECT_EQ(body(0), R"({"path":"/srv/a"})");
}

TEST_F(EffectiveCommands, ExplainAsksTheDaemonFirst) {
  daemon_.answer(R"({"status":0,"output":"{}\n","errors":""})");
  EXPECT_EQ(run({"--json", "effective", "/srv/../srv/a b", "7", "--explain"}), 0) << error_;
  EXPECT_EQ(out_, "{}\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_access/explain");
  EXPECT_EQ(body(0), R"({"json":true,"path":"/srv/a b","uid":7})");
}

TEST_F(EffectiveCommands, ProgramUnrunnableByDaemonFails) {
  daemon_.answer(R"({"error":"effectiveprivs took too long"})");
  EXPECT_EQ(run({"who", "/srv/a"}), 1);
  EXPECT_EQ(error_, "keelhouse: nobody can say who may do what: effectiveprivs took too long\n");
  daemon_.answer(R"({"error":"you need to be in the group paddock"})", 403);
  EXPECT_EQ(run({"who", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("you need to be in the group paddock"));
}

TEST_F(EffectivePrograms, NonRootUserGetsDaemonProgramReply) {
  answerBitmap("0");
  daemon_.answer(R"({"status":1,"output":"","errors":"effectiveprivs: it could not find out\n"})");
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(daemon_.socketPath().c_str(), 0666), 0);
  ASSERT_EQ(::seteuid(65534), 0);
  const int status = run({"effective", "/srv/a", "root"});
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("could not find out"));
}

TEST_F(EffectivePrograms, ExplainRunsTheProgramOfTheTree) {
  installScript("echo \"$@\"\n");
  EXPECT_EQ(runInTree({"effective", "/srv/../srv/a b", "root", "--explain"}), 0) << error_;
  EXPECT_EQ(out_, "--explain -p /srv/a b -u 0\n");
  EXPECT_EQ(runInTree({"--json", "effective", "/srv/a", "7", "--explain"}), 0) << error_;
  EXPECT_EQ(out_, "--json --explain -p /srv/a -u 7\n");
}

TEST_F(EffectivePrograms, WhoRunsTheProgramOfTheTree) {
  installScript("echo \"$@\"\n");
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "--who -p /srv/a\n");
  EXPECT_EQ(runInTree({"--json", "who", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "--json --who -p /srv/a\n");
}

TEST_F(EffectivePrograms, ProgramOutputIsForwardedUnchanged) {
  installScript("head -c 3000000 /dev/zero\n");
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 0);
  EXPECT_EQ(out_, std::string(3000000, '\0'));
}

TEST_F(EffectivePrograms, AProgramThatFailsIsAFailure) {
  for (const char* end : {"exit 1\n", "exit 2\n", "kill -9 $$\n"}) {
    installScript(end);
    EXPECT_EQ(runInTree({"who", "/srv/a"}), 1) << end;
  }
}

TEST_F(EffectivePrograms, MissingOrInvalidProgramFails) {
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 1);
  EXPECT_EQ(error_, "keelhouse: cannot run " + folder_.path("tree") + kPlace +
                        ": No such file or directory\n");
  installScript("");
  ASSERT_EQ(::chmod((folder_.path("tree") + kPlace).c_str(), 0644), 0);
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("Permission denied"));
}

TEST_F(EffectivePrograms, ProgramWritableByOthersIsNotRun) {
  installScript("touch " + folder_.path("ran") + "\n");
  const std::string program = folder_.path("tree") + kPlace;
  ASSERT_EQ(::chmod(program.c_str(), 0757), 0);
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("others can change " + program));
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  ASSERT_EQ(::chown(program.c_str(), 1, 1), 0);
  EXPECT_EQ(runInTree({"who", "/srv/a"}), 1);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("ran")));
}

TEST_F(EffectivePrograms, NonRootUserRequiresDaemon) {
  installScript("echo it ran\n");
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(::seteuid(65534), 0);
  const int status = runInTree({"who", "/srv/a"});
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(status, 3);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("cannot reach the daemon"));
}

}  // namespace
}  // namespace paddock::keelhouse
