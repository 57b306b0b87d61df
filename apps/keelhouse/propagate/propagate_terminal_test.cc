// `propagate --follow` on a terminal: the bar, and the interrupt key.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/on_terminal.h"
#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using testing::OnTerminal;

constexpr const char* kStarted =
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

TEST_F(PropagateOnTerminal, showsABarThatGivesWayToTheResult) {
  daemon_.answer(kStarted);
  daemon_.answer(kHalf);
  daemon_.answer(R"({"status":{"status":"completed","itemsDone":10,"itemsTotal":10}})");
  OnTerminal program(words());
  ASSERT_TRUE(program.waitFor("10 objects, 0 changed")) << program.shown();
  EXPECT_EQ(program.status(), 0) << program.shown();
  EXPECT_THAT(program.shown(), HasSubstr("\r\x1B[K[####################--------------------] "
                                         "5 of 10 objects (50%), 0 errors"));
  EXPECT_THAT(program.shown(), HasSubstr("\r\x1B[K" + shared_ + ": 10 objects"));
}

TEST_F(PropagateOnTerminal, leavesTheRunGoingAtTheInterruptKey) {
  daemon_.answer(kStarted);
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
