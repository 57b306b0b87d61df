#include "keelhouse/core/input.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "keelhouse/core/failure.h"
#include "support/on_terminal.h"
#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {

namespace {

// The reading end of a pipe that holds `text`.
class Input {
 public:
  explicit Input(std::string_view text) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe(ends), 0);
    EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(ends[1]);
    descriptor_ = ends[0];
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  ~Input() { ::close(descriptor_); }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

std::string passwordFrom(std::string_view text) {
  const Input input(text);
  return readPassword(input.descriptor(), "Password", true);
}

TEST(Password, IsFirstLine) {
  EXPECT_EQ(passwordFrom("secret"), "secret");
  EXPECT_EQ(passwordFrom("secret\n"), "secret");
  EXPECT_EQ(passwordFrom(" se cret \nmore\n"), " se cret ");
  EXPECT_EQ(passwordFrom(std::string(1024, 'x')), std::string(1024, 'x'));
}

TEST(Password, LeavesNextLineUnread) {
  const Input input("one\ntwo\n");
  EXPECT_EQ(readPassword(input.descriptor(), "Password", false), "one");
  EXPECT_EQ(readPassword(input.descriptor(), "Password", false), "two");
}

TEST(Password, RejectsEmptyOverlongAndInvalidUtf8) {
  for (const std::string& text :
       {std::string(), std::string("\n"), std::string("\xFF\n"), std::string(1025, 'x')}) {
    EXPECT_THROW(passwordFrom(text), Failure);
  }
  EXPECT_THROW(readPassword(9999, "Password", false), Failure);
}

TEST(Input, IsReadToEndOrLimit) {
  EXPECT_EQ(readAll(Input("abc\n").descriptor(), 4), "abc\n");
  EXPECT_EQ(readAll(Input("").descriptor(), 4), "");
  EXPECT_THROW(readAll(Input("abcde").descriptor(), 4), Failure);
}

}  // namespace

// keelhouse on a terminal: passwords are asked for, and what is typed is not shown.
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

TEST_F(Prompt, ReadsAccountPasswordWithoutShowingIt) {
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

TEST_F(Prompt, InterruptKeyEndsWithoutChange) {
  answerAutomounted();
  OnTerminal program(removal("joe"));
  ASSERT_TRUE(program.waitFor("Password of joe: "));
  program.type("s3\x03\n");
  EXPECT_EQ(program.status(), 1);
  EXPECT_THAT(program.shown(), HasSubstr("keelhouse: interrupted"));
  EXPECT_EQ(daemon_.requests().size(), 1U);
}

TEST_F(Prompt, RejectsEmptyPassword) {
  answerAutomounted();
  OnTerminal program(removal("joe"));
  ASSERT_TRUE(program.waitFor("Password of joe: "));
  program.type("\n");
  EXPECT_EQ(program.status(), 2);
  EXPECT_THAT(program.shown(), HasSubstr("keelhouse: the password is empty"));
}

TEST_F(Prompt, EscapesControlCharactersInAccountName) {
  answerAutomounted();
  OnTerminal program(removal("joe\x1B[31m"));
  ASSERT_TRUE(program.waitFor("Password of joe\\x1B[31m: ")) << program.shown();
  program.type("\n");
  EXPECT_EQ(program.status(), 2);
}

}  // namespace

}  // namespace paddock::keelhouse
