// `propagate` against a scripted daemon and a program that stands in for the one that does it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/keelhouse_commands.h"
#include "support/on_terminal.h"
#include "support/scripted_daemon.h"
#include "support/scripted_propagation.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {

namespace {

using ::testing::HasSubstr;
using testing::ScriptedPropagation;
using testing::StartedProcess;
using ::testing::StartsWith;
using testing::waitUntil;

constexpr const char* kStarted =
    R"({"path":"/srv/a","copyPrivsPid":4711,"copyPrivsStatusFile":"/tmp/CopyPrivsTemp.abcdef"})";

std::string completed(const std::string& more = {}) {
  return R"({"status":{"status":"completed","itemsDone":10,"itemsTotal":10,"itemsChanged":9,)"
         R"("elapsedSeconds":3)" +
         more + "}}";
}

class PropagateCommands : public CommandFixture {
 protected:
  // Of the test's own tree, which is where the scripted daemon's socket is.
  int propagate(std::vector<std::string> words) {
    words.insert(words.begin(), "propagate");
    return run(words);
  }
  std::string statusFile() const { return folder_.path("tmp/CopyPrivsTemp.abcdef"); }
  std::vector<std::string> runOn(const std::string& path) const {
    return {"CopyPrivs", "-p", path, "-f", "33", "-s", statusFile()};
  }
  void waitForStart() {
    waitUntil([this] { return !program_.arguments().empty(); });
  }

  ScriptedPropagation program_{folder_.path()};
  const std::string shared_ = makeFolder("shared");
};

TEST_F(PropagateCommands, StartsRunForGivenOptions) {
  daemon_.answer(kStarted);
  EXPECT_EQ(propagate({shared_, "--owner", "--acl"}), 0) << error_;
  EXPECT_EQ(out_, "Pushing down owner, acl of " + shared_ + ".\nFollow it: keelhouse propagate " +
                      shared_ + " --follow\n");
  EXPECT_EQ(error_, "");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/startPropagate");
  EXPECT_EQ(body(0), R"({"paths":[")" + shared_ + R"("],"propACL":1,"propOwnerName":1})");
}

TEST_F(PropagateCommands, UnrunnableProgramFailsWithReason) {
  for (const bool follows : {false, true}) {
    daemon_.answer(kStarted, 200, "X-Request-Id: 17\r\n");
    for (int each = 0; each < 2; ++each) {
      daemon_.answer(R"({"lines":[{"time":"2026-01-01T00:00:00.001Z","level":"error","text":)"
                     R"("program /x/copyprivs cannot be run: Permission denied"}]})");
    }
    std::vector<std::string> words{shared_, "--acl"};
    if (follows) words.emplace_back("--follow");
    EXPECT_EQ(propagate(words), 1);
    EXPECT_EQ(out_, "");
    EXPECT_EQ(error_, "keelhouse: the privileges of " + shared_ +
                          " cannot be pushed down: program "
                          "/x/copyprivs cannot be run: Permission denied\n");
  }
}

TEST_F(PropagateCommands, EachOptionSetsItsRequestFlag) {
  const std::vector<std::pair<std::string, std::string>> flags = {
      {"--owner", "propOwnerName"},      {"--group", "propGroupName"},
      {"--owner-perm", "propOwnerPerm"}, {"--group-perm", "propGroupPerm"},
      {"--world-perm", "propWorldPerm"}, {"--acl", "propACL"}};
  for (std::size_t at = 0; at < flags.size(); ++at) {
    daemon_.answer(kStarted);
    EXPECT_EQ(propagate({shared_, flags[at].first}), 0) << error_;
    EXPECT_EQ(body(at), R"({"paths":[")" + shared_ + R"("],")" + flags[at].second + R"(":1})");
  }
}

TEST_F(PropagateCommands, JsonPrintsReply) {
  daemon_.answer(kStarted);
  EXPECT_EQ(propagate({shared_, "--owner", "--json"}), 0) << error_;
  EXPECT_EQ(out_,
            "{\n  \"copyPrivsPid\": 4711,\n  \"copyPrivsStatusFile\": "
            "\"/tmp/CopyPrivsTemp.abcdef\",\n  \"path\": \"/srv/a\"\n}\n");
}

TEST_F(PropagateCommands, MissingSelectionListsAvailableOptions) {
  EXPECT_EQ(propagate({shared_}), 2);
  EXPECT_THAT(error_, StartsWith("keelhouse: propagate: no option says what to push down: any of "
                                 "--owner --group --owner-perm --group-perm --world-perm --acl\n"));
  EXPECT_EQ(propagate({shared_, "--dry-run"}), 2);
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PropagateCommands, RefusesConflictingArguments) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{},
                                             {"--owner"},
                                             {"", "--owner"},
                                             {"/srv/\xFF", "--owner"},
                                             {shared_, shared_, "--owner"},
                                             {shared_, "--owner", "--stop"},
                                             {shared_, "--acl", "--stop"},
                                             {shared_, "--follow", "--stop"},
                                             {shared_, "--dry-run", "--stop"},
                                             {shared_, "--owner", "--dry-run", "--follow"},
                                             {shared_, "--everything"}}) {
    EXPECT_EQ(propagate(words), 2) << ::testing::PrintToString(words);
    EXPECT_THAT(error_, StartsWith("keelhouse: "));
    EXPECT_EQ(out_, "");
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PropagateCommands, RefusesNonFolderBeforeRequest) {
  writeWholeFile(folder_.path("file"), "x");
  std::filesystem::create_directory_symlink(shared_, folder_.path("link"));
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"file", "it is not a folder"},
      {"fifo", "it is not a folder"},
      {"missing", "No such file or directory"},
      {"file/below", "Not a directory"},
      {"link", "it is a link; name the folder itself: " + shared_}};
  for (const std::string option : {"--follow", "--dry-run"}) {
    for (const auto& [name, reason] : cases) {
      EXPECT_EQ(propagate({folder_.path(name), "--owner", option}), 1) << name;
      EXPECT_EQ(error_, "keelhouse: the privileges of " + folder_.path(name) +
                            " cannot be pushed down: " + reason + "\n");
      EXPECT_EQ(out_, "");
    }
  }
  EXPECT_EQ(asked(), 0U);
  EXPECT_EQ(program_.arguments(), "");
}

TEST_F(PropagateCommands, RefusesWholeSystem) {
  for (const std::string path : {"/", "//", "/srv/.."}) {
    for (const std::string option : {"--follow", "--dry-run"}) {
      EXPECT_EQ(propagate({path, "--owner", option}), 1);
      EXPECT_EQ(error_,
                "keelhouse: the privileges of / cannot be pushed down: it is the whole system\n");
    }
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PropagateCommands, ReportsProgramStartFailure) {
  daemon_.answer(R"({"error":"CANNOT_PROPAGATE_PRIVS_ERR"})");
  EXPECT_EQ(propagate({shared_, "--owner"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr(" cannot be pushed down (CANNOT_PROPAGATE_PRIVS_ERR, 100054)\n"));
  EXPECT_THAT(error_, HasSubstr("copyprivs"));
}

TEST_F(PropagateCommands, ReplyWithoutFollowInformationFails) {
  for (const char* reply : {"{}", R"({"copyPrivsPid":1})", R"({"copyPrivsStatusFile":"/tmp/x"})",
                            R"({"copyPrivsPid":[],"copyPrivsStatusFile":5})"}) {
    daemon_.answer(reply);
    EXPECT_EQ(propagate({shared_, "--owner", "--follow"}), 1);
    EXPECT_THAT(error_, HasSubstr("the daemon's reply does not say how to follow it"));
  }
}

TEST_F(PropagateCommands, FollowsStartedRun) {
  daemon_.answer(kStarted);
  daemon_.answer(R"({"status":{"status":"running","itemsDone":5,"itemsTotal":10}})");
  daemon_.answer(completed());
  EXPECT_EQ(propagate({shared_, "--owner", "--follow"}), 0) << error_;
  EXPECT_EQ(out_, "5 of 10 objects (50%), 0 errors\n" + shared_ +
                      ": 10 objects, 9 changed, 0 errors, in 3 s\n");
  EXPECT_EQ(body(1), R"({"copyPrivsPid":4711,"copyPrivsStatusFile":"/tmp/CopyPrivsTemp.abcdef"})");
}

TEST_F(PropagateCommands, JsonPrintsFollowedRunAsOneDictionary) {
  daemon_.answer(kStarted);
  daemon_.answer(R"({"status":{"status":"running","itemsDone":5,"itemsTotal":10}})");
  daemon_.answer(R"({"status":{"status":"completed"}})");
  EXPECT_EQ(propagate({shared_, "--owner", "--follow", "--json"}), 0) << error_;
  EXPECT_EQ(out_,
            "{\n  \"copyPrivsPid\": 4711,\n  \"copyPrivsStatusFile\": "
            "\"/tmp/CopyPrivsTemp.abcdef\",\n  \"path\": \"/srv/a\",\n  \"status\": {\n    "
            "\"status\": \"completed\"\n  }\n}\n");
}

TEST_F(PropagateCommands, FailedObjectsAreNamedWithExitStatusOne) {
  daemon_.answer(kStarted);
  daemon_.answer(completed(
      R"(,"errorCount":2,"errors":[{"path":"/srv/a\n\u001b[2J","error":"Operation not permitted"}])"));
  EXPECT_EQ(propagate({shared_, "--owner", "--follow"}), 1);
  EXPECT_THAT(out_, HasSubstr(": 10 objects, 9 changed, 2 errors, in 3 s\n"));
  EXPECT_EQ(error_, "keelhouse: 2 objects in " + shared_ +
                        " could not be set, or not wholly:\n"
                        "  /srv/a\\x0A\\x1B[2J: Operation not permitted\n  and 1 more\n");
}

TEST_F(PropagateCommands, FailedObjectsGiveExitStatusOneWithJson) {
  daemon_.answer(kStarted);
  daemon_.answer(completed(R"(,"errorCount":1,"errors":[])"));
  EXPECT_EQ(propagate({shared_, "--owner", "--follow", "--json"}), 1);
  EXPECT_THAT(out_, HasSubstr("\"errorCount\": 1"));
}

TEST_F(PropagateCommands, ReportsRunThatCouldNotStart) {
  daemon_.answer(kStarted);
  daemon_.answer(R"({"status":{"status":"completed","error":"/srv/a: it is\u0007 a link"}})");
  EXPECT_EQ(propagate({shared_, "--owner", "--follow"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr(" cannot be pushed down: /srv/a: it is\\x07 a link\n"));
}

TEST_F(PropagateCommands, ReportsStoppedRun) {
  daemon_.answer(kStarted);
  daemon_.answer(completed(R"(,"stopped":true)"));
  EXPECT_EQ(propagate({shared_, "--owner", "--follow"}), 1);
  EXPECT_THAT(out_, HasSubstr(": stopped after 10 objects, 9 changed"));
  EXPECT_THAT(error_, HasSubstr("was stopped before its end\n"));
}

TEST_F(PropagateCommands, RefusesSecondRunOnSameFolder) {
  program_.waits();
  const StartedProcess process(program_.program(), runOn(shared_));
  waitForStart();
  EXPECT_EQ(propagate({shared_, "--owner"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: a run works on " + shared_ +
                                 " already, pushing down owner, acl\nFollow it: keelhouse "
                                 "propagate " +
                                 shared_ + " --follow\n"));
  EXPECT_EQ(asked(), 0U);
  daemon_.answer(kStarted);
  EXPECT_EQ(propagate({makeFolder("other"), "--owner"}), 0) << error_;
}

TEST_F(PropagateCommands, FollowsRunAlreadyInProgress) {
  program_.waits();
  const StartedProcess process(program_.program(), runOn("/gone/by now"));
  waitForStart();
  daemon_.answer(completed());
  EXPECT_EQ(propagate({"/gone/by now", "--follow"}), 0) << error_;
  EXPECT_EQ(body(0), R"({"copyPrivsPid":)" + std::to_string(process.process()) +
                         R"(,"copyPrivsStatusFile":")" + statusFile() + R"("})");
  EXPECT_THAT(out_, HasSubstr("/gone/by now: 10 objects, 9 changed"));
}

TEST_F(PropagateCommands, FollowsEndedRun) {
  writeWholeFile(statusFile(),
                 ScriptedPropagation::status(ScriptedPropagation::text("status", "completed") +
                                             ScriptedPropagation::text("path", shared_) +
                                             ScriptedPropagation::number("pid", 99)));
  daemon_.answer(completed());
  EXPECT_EQ(propagate({shared_, "--follow"}), 0) << error_;
  EXPECT_EQ(body(0), R"({"copyPrivsPid":99,"copyPrivsStatusFile":")" + statusFile() + R"("})");
}

TEST_F(PropagateCommands, FollowWithoutRunFails) {
  EXPECT_EQ(propagate({shared_, "--follow"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: no run works on " + shared_));
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PropagateCommands, MissingDaemonGivesExitStatusThree) {
  EXPECT_EQ(runAsIs({"--socket", folder_.path("none.sock"), "propagate", shared_, "--owner"}), 3);
}

// Operations that require root.
class PropagateCommandsOfRoot : public PropagateCommands {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "runs are root's to stop and to try";
  }
};

TEST_F(PropagateCommandsOfRoot, StopEndsRunAndReportsProgress) {
  program_.waits();
  program_.says("stopped",
                ScriptedPropagation::status(ScriptedPropagation::text("status", "completed") +
                                            "<key>stopped</key><true/>" +
                                            ScriptedPropagation::number("itemsDone", 4) +
                                            ScriptedPropagation::number("itemsTotal", 10)));
  StartedProcess process(program_.program(), runOn(shared_));
  waitForStart();
  daemon_.answer(completed());
  EXPECT_EQ(propagate({shared_, "--stop"}), 0) << error_;
  EXPECT_EQ(out_, shared_ + ": stopped after 4 objects of 10, 0 changed, 0 errors, in 0 s\n");
  EXPECT_EQ(error_, "");
  const int status = process.wait();
  EXPECT_TRUE(WIFEXITED(status));
  ASSERT_EQ(asked(), 1U);
  EXPECT_THAT(body(0), HasSubstr(statusFile()));
}

TEST_F(PropagateCommandsOfRoot, StopPrintsListWithJson) {
  program_.waits();
  StartedProcess process(program_.program(), runOn(shared_));
  waitForStart();
  EXPECT_EQ(propagate({shared_, "--stop", "--json"}), 0) << error_;
  process.wait();
  EXPECT_THAT(out_, StartsWith("[\n  {\n    \"copyPrivsPid\": "));
}

TEST_F(PropagateCommandsOfRoot, StopSparesOtherRunsAndPrograms) {
  program_.waits();
  const StartedProcess other(program_.program(), runOn("/srv/other"));
  waitForStart();
  const std::string impostor = folder_.path("impostor");
  std::filesystem::copy_file(SCRIPTED_COPYPRIVS, impostor);
  writeWholeFile(impostor + ".wait", "");
  const StartedProcess same(impostor, runOn(shared_));
  waitUntil([&] { return std::filesystem::exists(impostor + ".arguments"); });
  EXPECT_EQ(propagate({shared_, "--stop"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: no run works on " + shared_));
  EXPECT_EQ(::kill(other.process(), 0), 0);
  EXPECT_EQ(::kill(same.process(), 0), 0);
  EXPECT_EQ(::waitpid(same.process(), nullptr, WNOHANG), 0);
  EXPECT_EQ(::waitpid(other.process(), nullptr, WNOHANG), 0);
}

TEST_F(PropagateCommandsOfRoot, StopSucceedsWithoutDaemon) {
  program_.waits();
  StartedProcess process(program_.program(), runOn(shared_));
  waitForStart();
  EXPECT_EQ(runAsIs({"--root", folder_.path(), "propagate", shared_, "--stop"}), 0) << error_;
  process.wait();
  EXPECT_EQ(out_, shared_ + ": stopped\n");
}

TEST_F(PropagateCommandsOfRoot, DryRunReturnsCountsAndExamples) {
  program_.says(
      "end",
      ScriptedPropagation::status(
          ScriptedPropagation::text("status", "completed") + "<key>dryRun</key><true/>" +
          ScriptedPropagation::number("itemsDone", 10) +
          ScriptedPropagation::number("itemsChanged", 1) + "<key>examples</key><array><dict>" +
          ScriptedPropagation::text("path", "@PATH@/x") +
          "<key>changes</key><array><string>owner</string><string>acl</string>"
          "</array></dict></array>"));
  EXPECT_EQ(propagate({shared_, "--owner", "--acl", "--dry-run"}), 0) << error_;
  EXPECT_EQ(out_, shared_ +
                      ": 10 objects, 1 would change, 0 errors, in 0 s\n"
                      "CHANGES    OBJECT\nowner,acl  " +
                      shared_ + "/x\n");
  EXPECT_THAT(program_.arguments(), StartsWith("copyprivs\n-n\n-p\n" + shared_ + "\n-f\n33\n-s\n"));
  EXPECT_EQ(asked(), 1U);
}

TEST_F(PropagateCommands, DryRunAsksDaemonFirst) {
  daemon_.answer(
      R"({"status":0,"output":"","errors":"","report":"<plist><dict><key>status</key>)"
      R"(<string>completed</string><key>itemsDone</key><integer>10</integer>)"
      R"(<key>itemsChanged</key><integer>1</integer><key>dryRun</key><true/></dict></plist>"})");
  EXPECT_EQ(propagate({shared_, "--owner", "--acl", "--dry-run"}), 0) << error_;
  EXPECT_THAT(out_, StartsWith(shared_ + ": 10 objects, 1 would change, 0 errors, in 0 s\n"));
  EXPECT_EQ(target(0), "POST /v1/paddock_access/previewPropagation");
  EXPECT_EQ(body(0), R"({"mask":33,"path":")" + shared_ + R"("})");
  EXPECT_EQ(program_.arguments(), "");
}

TEST_F(PropagateCommands, DryRunRefusedByDaemonNeverRunsLocally) {
  daemon_.answer(R"({"error":"you need to be in the group paddock"})", 403);
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 1);
  EXPECT_THAT(error_, HasSubstr("you need to be in the group paddock"));
  EXPECT_EQ(program_.arguments(), "");
}

TEST_F(PropagateCommandsOfRoot, DryRunExceedingDaemonDeadlineRunsLocally) {
  program_.says("end",
                ScriptedPropagation::status(ScriptedPropagation::text("status", "completed")));
  daemon_.answer(R"({"error":"copyprivs took too long"})");
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 0) << error_;
  EXPECT_THAT(program_.arguments(), StartsWith("copyprivs\n-n\n"));
}

TEST_F(PropagateCommandsOfRoot, DryRunRemovesStatusFile) {
  program_.says("end",
                ScriptedPropagation::status(ScriptedPropagation::text("status", "completed")));
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 0) << error_;
  const std::string arguments = program_.arguments();
  const std::string statusFile = arguments.substr(arguments.find("-s\n") + 3);
  EXPECT_FALSE(std::filesystem::exists(
      std::filesystem::path(statusFile.substr(0, statusFile.size() - 1)).parent_path()));
}

TEST_F(PropagateCommandsOfRoot, DryRunNamesUnreadableObjects) {
  program_.says(
      "end", ScriptedPropagation::status(ScriptedPropagation::text("status", "completed") +
                                         ScriptedPropagation::number("errorCount", 1) +
                                         "<key>dryRun</key><true/><key>errors</key><array><dict>" +
                                         ScriptedPropagation::text("path", "/srv/x") +
                                         ScriptedPropagation::text("error", "Input/output error") +
                                         "</dict></array>"));
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run", "--json"}), 1);
  EXPECT_THAT(out_, HasSubstr("\"dryRun\": true"));
  EXPECT_THAT(error_, HasSubstr("could not be set:\n  /srv/x: Input/output error\n"));
}

TEST_F(PropagateCommandsOfRoot, DryRunOfSilentProgramFails) {
  program_.says("complaint", "copyprivs: no \x1B[1mroom\n");
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 1);
  EXPECT_EQ(error_, "keelhouse: " + program_.program() +
                        " ended without saying what it found: copyprivs: no \\x1B[1mroom\n");
  std::filesystem::remove(program_.program());
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 1);
  EXPECT_EQ(error_,
            "keelhouse: cannot run " + program_.program() + ": No such file or directory\n");
}

// Whoever can write to a folder above can put a program of theirs in the place of ours.
TEST_F(PropagateCommandsOfRoot, DryRunRejectsProgramOthersCanWrite) {
  const auto expectRefused = [this](const std::string& why) {
    EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 1);
    EXPECT_THAT(error_, StartsWith("keelhouse: cannot run " + program_.program() + ": " + why));
    EXPECT_EQ(program_.arguments(), "");
  };
  const std::string share = folder_.path("usr/share");
  ASSERT_EQ(::chmod(share.c_str(), 0775), 0);
  expectRefused("others can change " + share + " (mode 0775)");
  ASSERT_EQ(::chmod(share.c_str(), 0755), 0);
  for (const std::string& place : {share, program_.program()}) {
    ASSERT_EQ(::chown(place.c_str(), 4711, 0), 0);
    expectRefused(place + " belongs to user 4711");
    ASSERT_EQ(::chown(place.c_str(), 0, 0), 0);
  }
  program_.says("end",
                ScriptedPropagation::status(ScriptedPropagation::text("status", "completed")));
  EXPECT_EQ(propagate({shared_, "--owner", "--dry-run"}), 0) << error_;
}

TEST_F(PropagateCommandsOfRoot, StatusShowsCurrentRuns) {
  program_.waits();
  program_.says("begin",
                ScriptedPropagation::status(ScriptedPropagation::text("status", "running") +
                                            ScriptedPropagation::number("itemsDone", 4) +
                                            ScriptedPropagation::number("itemsTotal", 10)));
  const StartedProcess process(program_.program(), runOn("/srv/a\n"));
  waitUntil([this] { return std::filesystem::exists(statusFile()); });
  const std::string number = std::to_string(process.process());
  const auto answer = [this] {
    daemon_.answer(R"({"status":"ok"})");
    daemon_.answer(R"({"plugins":[]})");
  };
  answer();
  run({"status"});
  EXPECT_THAT(out_, HasSubstr("propagation /srv/a\\x0A  owner, acl, 4 of 10 objects (40%), 0 "
                              "errors, process " +
                              number + "\n"));
  answer();
  run({"status", "--json"});
  EXPECT_THAT(out_, HasSubstr("\"pid\": " + number));
  EXPECT_THAT(out_, HasSubstr("\"itemsDone\": 4"));
}

}  // namespace

// `propagate --follow` on a terminal: the bar, and the interrupt key.
namespace {

using ::testing::HasSubstr;
using testing::OnTerminal;

constexpr const char* kStartedOnTerminal =
    R"({"path":"/srv/a","copyPrivsPid":1,"copyPrivsStatusFile":"/tmp/CopyPrivsTemp.abcdef"})";
constexpr const char* kHalf =
    R"({"status":{"status":"running","itemsDone":5,"itemsTotal":10,"pid":1}})";

class PropagateOnTerminal : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(shared_); }
  std::vector<std::string> words() const {
    return {KEELHOUSE_PROGRAM, "--root", folder_.path(), "propagate", shared_, "--acl", "--follow"};
  }

  TestFolder folder_;
  std::string shared_ = folder_.path("shared");
  testing::ScriptedDaemon daemon_{folder_.path()};
};

TEST_F(PropagateOnTerminal, ProgressBarIsReplacedByResult) {
  daemon_.answer(kStartedOnTerminal);
  daemon_.answer(kHalf);
  daemon_.answer(R"({"status":{"status":"completed","itemsDone":10,"itemsTotal":10}})");
  OnTerminal program(words());
  ASSERT_TRUE(program.waitFor("10 objects, 0 changed")) << program.shown();
  EXPECT_EQ(program.status(), 0) << program.shown();
  EXPECT_THAT(program.shown(), HasSubstr("\r\x1B[K[####################--------------------] "
                                         "5 of 10 objects (50%), 0 errors"));
  EXPECT_THAT(program.shown(), HasSubstr("\r\x1B[K" + shared_ + ": 10 objects"));
}

TEST_F(PropagateOnTerminal, InterruptKeyLeavesRunGoing) {
  daemon_.answer(kStartedOnTerminal);
  for (int count = 0; count < 100; ++count) daemon_.answer(kHalf);
  OnTerminal program(words());
  ASSERT_TRUE(program.waitFor("5 of 10")) << program.shown();
  program.type("\x03");
  EXPECT_EQ(program.status(), 1);
  EXPECT_THAT(program.shown(), HasSubstr("\r\x1B[Kkeelhouse: interrupted; the run goes on\r\n"
                                         "Follow it: keelhouse propagate " +
                                         shared_ + " --follow\r\n"));
}

}  // namespace

}  // namespace paddock::keelhouse
