#include "keelhouse/propagate/run_follower.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "keelhouse/core/failure.h"
#include "support/keelhouse_session.h"

namespace paddock::keelhouse {
namespace {

using std::chrono::milliseconds;
using ::testing::HasSubstr;

class RunFollower : public SessionFixture {
 protected:
  static std::string running(int done, const std::string& more = {}) {
    return R"({"status":{"status":"running","itemsDone":)" + std::to_string(done) +
           R"(,"itemsTotal":10,"pid":)" + std::to_string(::getpid()) + more + "}}";
  }
  static constexpr const char* kCompleted =
      R"({"status":{"status":"completed","itemsDone":10,"itemsTotal":10}})";
  static constexpr const char* kMissing = R"({"error":"COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR"})";

  Dictionary follow() {
    session_.root = folder_.path();
    return followRun(session_, {"/srv/a", 4711, "/tmp/CopyPrivsTemp.abcdef"}, times_);
  }
  std::string failureText() {
    try {
      follow();
    } catch (const Failure& failed) {
      status_ = failed.status();
      return failed.what();
    }
    return "it did not fail";
  }

  FollowTimes times_{milliseconds(1), milliseconds(5), milliseconds(300), milliseconds(300)};
  ExitStatus status_ = ExitStatus::done;
};

TEST_F(RunFollower, PollsUntilRunCompletes) {
  for (const int done : {1, 2, 3}) daemon_.answer(running(done));
  daemon_.answer(kCompleted);
  EXPECT_EQ(follow().integer("itemsDone"), 10);
  ASSERT_EQ(daemon_.requests().size(), 4U);
  EXPECT_EQ(daemon_.requests()[0].target, "POST /v1/paddock_sharing/statusCopyPrivs");
  EXPECT_EQ(daemon_.requests()[3].body,
            R"({"copyPrivsPid":4711,"copyPrivsStatusFile":"/tmp/CopyPrivsTemp.abcdef"})");
  EXPECT_THAT(out_.str(), HasSubstr("1 of 10 objects (10%), 0 errors\n"));
}

TEST_F(RunFollower, WaitsForFirstStatusOfProgram) {
  for (int count = 0; count < 3; ++count) daemon_.answer("{}");
  daemon_.answer(kCompleted);
  EXPECT_EQ(follow().integer("itemsDone"), 10);
}

TEST_F(RunFollower, StatusWithoutCompletionKeepsPolling) {
  daemon_.answer(R"({"status":{}})");
  daemon_.answer(R"({"status":{"status":"Completed"}})");
  daemon_.answer(kCompleted);
  follow();
  EXPECT_EQ(daemon_.requests().size(), 3U);
}

TEST_F(RunFollower, ReportsRunUnknownToDaemon) {
  daemon_.answer(kMissing);
  EXPECT_THAT(failureText(), HasSubstr("COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR"));
}

TEST_F(RunFollower, ReportsRunWhoseResultWentToAnotherClient) {
  daemon_.answer(R"({"status":{"status":"running","pid":2147483647}})");
  daemon_.answer(kMissing);
  EXPECT_THAT(failureText(), HasSubstr("has ended, and somebody else was told how"));
}

TEST_F(RunFollower, ReportsRemovedStatusFile) {
  daemon_.answer(running(1));
  daemon_.answer(kMissing);
  EXPECT_THAT(failureText(), HasSubstr("is gone\nThe run goes on, and nobody can tell how far"));
}

TEST_F(RunFollower, WaitsForRestartingDaemon) {
  daemon_.answer(running(1));
  daemon_.hangUp();
  daemon_.answer(kCompleted);
  EXPECT_EQ(follow().integer("itemsDone"), 10);
}

TEST_F(RunFollower, GivesUpOnAbsentDaemon) {
  const DaemonClient nobody(folder_.path("none.sock"));
  const Session session{nobody, out_, notes_};
  const auto before = std::chrono::steady_clock::now();
  try {
    followRun(session, {"/srv/a", 4711, "/tmp/x"}, times_);
    FAIL() << "it was followed";
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::unreachable);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - before, times_.patience);
}

TEST_F(RunFollower, RefusalFailsWithoutRetry) {
  daemon_.answer(R"({"error":"no"})", 403);
  daemon_.answer(R"({"error":"no"})", 403);
  EXPECT_THAT(failureText(), HasSubstr("HTTP 403"));
  EXPECT_EQ(daemon_.requests().size(), 2U);
}

TEST_F(RunFollower, ReportsVanishedProgram) {
  const std::string gone = R"({"status":{"status":"running","itemsDone":1,"pid":2147483647}})";
  for (int count = 0; count < 1000; ++count) daemon_.answer(gone);
  EXPECT_THAT(failureText(), HasSubstr("is gone without having completed"));
}

TEST_F(RunFollower, ReportsProgramWithoutAnyStatus) {
  for (int count = 0; count < 1000; ++count) daemon_.answer("{}");
  EXPECT_THAT(failureText(), HasSubstr("is gone without having completed"));
}

TEST_F(RunFollower, LiveProgramMayStaySilent) {
  times_.silence = milliseconds(20);
  for (int count = 0; count < 30; ++count) daemon_.answer(running(1));
  daemon_.answer(kCompleted);
  EXPECT_EQ(follow().integer("itemsDone"), 10);
}

TEST_F(RunFollower, InterruptKeyLeavesRunGoing) {
  for (int count = 0; count < 1000; ++count) daemon_.answer(running(1));
  const pthread_t self = ::pthread_self();
  std::thread key([this, self] {
    while (daemon_.requests().size() < 2) std::this_thread::sleep_for(milliseconds(1));
    ::pthread_kill(self, SIGINT);
  });
  const std::string text = failureText();
  key.join();
  EXPECT_EQ(text,
            "interrupted; the run goes on\nFollow it: keelhouse propagate /srv/a --follow\n"
            "Stop it: keelhouse propagate /srv/a --stop");
  EXPECT_EQ(status_, ExitStatus::failed);
}

TEST_F(RunFollower, ToleratesMalformedStatus) {
  daemon_.answer(R"({"status":"completed"})");
  daemon_.answer(R"({"status":{"status":["completed"],"errors":{},"pid":"-1"}})");
  daemon_.answer(kCompleted);
  follow();
  EXPECT_EQ(daemon_.requests().size(), 3U);
}

}  // namespace
}  // namespace paddock::keelhouse
