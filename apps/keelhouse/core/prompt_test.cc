// keelhouse on a terminal: passwords are asked for, and what is typed is not shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/on_terminal.h"
#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::OnTerminal;

class Prompt : public ::testing::Test {
 protected:
  std::vector<std::string> removal(const std::string& account) const {
    return {KEELHOUSE_PROGRAM, "--root", folder_.path(), "share",
            "remove",          "/srv/a", "--admin",      account};
  }
  void answerAutomounted() {
    daemon_.answer(R"({"configuration":{"sharePointRecord":{"path":"/srv/a","isShared":true,)"
                   R"("isAutomounted":true,"automountDSPath":"/Local"}},"readStatus":0})");
  }

  TestFolder folder_;
  testing::ScriptedDaemon daemon_{folder_.path()};
};

TEST_F(Prompt, takesThePasswordOfAnAccountAndDoesNotShowIt) {
  answerAutomounted();
  daemon_.answer(R"({"status":0})");
  daemon_.answer(R"({"configuration":{"sharePointRecord":{"isShared":false}},"writeStatus":0})");
  daemon_.answer(R"({"status":0})");
  OnTerminal program(removal("joe"));
  ASSERT_TRUE(program.waitFor("Password of joe: ")) << program.shown();
  program.type("s3cret\n");
  EXPECT_EQ(program.status(), 0) << program.shown();
  EXPECT_THAT(program.shown(), HasSubstr("/srv/a is no longer shared."));
  EXPECT_THAT(program.shown(), Not(HasSubstr("s3cret")));
  EXPECT_THAT(daemon_.requests().at(2).body, HasSubstr(R"("adminPassword":"s3cret")"));
}

TEST_F(Prompt, endsWithoutAChangeAtTheInterruptKey) {
  answerAutomounted();
  OnTerminal program(removal("joe"));
  ASSERT_TRUE(program.waitFor("Password of joe: "));
  program.type("s3\x03\n");
  EXPECT_EQ(program.status(), 1);
  EXPECT_THAT(program.shown(), HasSubstr("keelhouse: interrupted"));
  EXPECT_EQ(daemon_.requests().size(), 1U);
}

TEST_F(Prompt, refusesAnEmptyPassword) {
  answerAutomounted();
  OnTerminal program(removal("joe"));
  ASSERT_TRUE(program.waitFor("Password of joe: "));
  program.type("\n");
  EXPECT_EQ(program.status(), 2);
  EXPECT_THAT(program.shown(), HasSubstr("keelhouse: the password is empty"));
}

TEST_F(Prompt, cannotBeSteeredByTheAccountsName) {
  answerAutomounted();
  OnTerminal program(removal("joe\x1B[31m"));
  ASSERT_TRUE(program.waitFor("Password of joe\\x1B[31m: ")) << program.shown();
  program.type("\n");
  EXPECT_EQ(program.status(), 2);
}

}  // namespace
}  // namespace paddock::keelhouse
