// keelhouse on a terminal: passwords are asked for, and what is typed is not shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

// A program on a terminal of its own, which shows `shown` so far.
class OnTerminal {
 public:
  explicit OnTerminal(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ == 0) {
      ::execv(arguments.front(), arguments.data());
      ::_exit(127);
    }
  }
  OnTerminal(const OnTerminal&) = delete;
  OnTerminal& operator=(const OnTerminal&) = delete;
  ~OnTerminal() {
    ::close(terminal_);
    if (child_ > 0) (void)status();
  }

  const std::string& shown() const { return shown_; }

  // Reads until the terminal shows `text`, or the program has ended.
  bool waitFor(const std::string& text) {
    while (shown_.find(text) == std::string::npos) {
      if (!readSome()) return false;
    }
    return true;
  }
  void type(const std::string& text) const {
    EXPECT_EQ(::write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  // The exit status, after the end.
  int status() {
    while (readSome()) {
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child_, &status, 0), child_);
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  bool readSome() {
    char buffer[4096];
    const ssize_t count = ::read(terminal_, buffer, sizeof buffer);
    if (count <= 0) return false;
    shown_.append(buffer, static_cast<std::size_t>(count));
    return true;
  }

  int terminal_ = -1;
  pid_t child_ = -1;
  std::string shown_;
};

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
