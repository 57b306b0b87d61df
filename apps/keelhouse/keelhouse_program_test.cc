// The program itself: its streams, its exit status, and where it expects the daemon.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/run_to_end.h"
#include "support/scripted_daemon.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class Program : public ::testing::Test {
 protected:
  int run(const std::string& program, std::vector<std::string> words, const std::string& input) {
    words.insert(words.begin(), program);
    const EndedProgram ended = runProgram(words, input);
    out_ = ended.output;
    error_ = ended.error;
    return ended.status;
  }

  std::string installBelow(const std::filesystem::path& root) {
    const auto program = root / "usr/sbin/keelhouse";
    std::filesystem::create_directories(program.parent_path());
    std::filesystem::copy_file(KEELHOUSE_PROGRAM, program);
    return program;
  }

  TestFolder folder_;
  testing::ScriptedDaemon daemon_{folder_.path()};
  std::string out_;
  std::string error_;
};

TEST_F(Program, FindsDaemonBelowItsInstallationTree) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(
      run(installBelow(folder_.path()), {"command", "vsp:command", "=", "syncSharePoints"}, ""), 0)
      << error_;
  EXPECT_EQ(out_, "vsp:status = 0\n");
  EXPECT_EQ(error_, "");
}

TEST_F(Program, CommandLineRootTakesPrecedence) {
  const TestFolder other;
  const std::string program = installBelow(folder_.path());
  EXPECT_EQ(run(program, {"--root", other.path(), "share", "list"}, ""), 3);
  EXPECT_THAT(error_, HasSubstr(other.path() + "/run/paddock/paddockd.sock"));
  EXPECT_EQ(out_, "");
}

TEST_F(Program, ReadsRequestFromStandardInput) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(
      run(KEELHOUSE_PROGRAM, {"--root", folder_.path(), "request", "p", "o", "-"}, R"({"a":1})"), 0)
      << error_;
  EXPECT_EQ(daemon_.requests().at(0).body, R"({"a":1})");
}

TEST_F(Program, ReturnsExitStatusOfItsCommand) {
  const auto runHere = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"--root", folder_.path()});
    return run(KEELHOUSE_PROGRAM, words, "");
  };
  daemon_.answer(R"({"configuration":{"fileAccessPrivs":{"acl":[]}},"readStatus":0})");
  EXPECT_EQ(runHere({"acl", "show", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "/srv/a has no ACL entries.\n");
  EXPECT_EQ(error_, "");
  daemon_.answer(R"({"configuration":{"fileAccessPrivs":{"acl":[]}},"readStatus":0})");
  daemon_.answer(R"({"writeStatus":100052})");
  EXPECT_EQ(runHere({"privs", "set", "/srv/a", "--mode", "750"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, StartsWith("keelhouse: the privileges of /srv/a cannot be changed "
                                 "(CANNOT_CHANGE_PRIVS_ERR, 100052)\n"));
  EXPECT_EQ(runHere({"acl", "add", "/srv/a", "allow", "user:root"}), 2);
  EXPECT_EQ(run(KEELHOUSE_PROGRAM, {"--socket", folder_.path("none"), "index", "on", "/a"}, ""), 3);
}

TEST_F(Program, ReadsPasswordFromStandardInputWithoutShowingIt) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run(KEELHOUSE_PROGRAM, {"--root", folder_.path(), "record", "password", "joe"},
                "s3cret\nrest\n"),
            0)
      << error_;
  EXPECT_EQ(daemon_.requests().at(0).target, "POST /v1/paddock_directory/setPassword");
  EXPECT_EQ(daemon_.requests().at(0).body, R"({"name":"joe","password":"s3cret"})");
  EXPECT_EQ(out_ + error_, "");
}

TEST_F(Program, AuthenticatesWithPasswordFromDescriptor) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run(KEELHOUSE_PROGRAM,
                {"--root", folder_.path(), "record", "delete", "users", "joe", "--admin", "root",
                 "--admin-password-fd", "0"},
                "pw\n"),
            0)
      << error_;
  EXPECT_EQ(daemon_.requests().at(0).body,
            R"({"adminPassword":"pw","adminUserName":"root","name":"joe",)"
            R"("type":"dsRecTypeStandard:Users"})");
}

TEST_F(Program, ReadsBothPasswordsInOrderFromOneDescriptor) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run(KEELHOUSE_PROGRAM,
                {"--root", folder_.path(), "record", "password", "joe", "--admin", "root",
                 "--admin-password-fd", "0", "--password-fd", "0"},
                "first\nsecond\n"),
            0)
      << error_;
  EXPECT_EQ(daemon_.requests().at(0).body,
            R"({"adminPassword":"first","adminUserName":"root","name":"joe","password":"second"})");
}

TEST_F(Program, RefusesAmbiguousPasswordOnStandardInput) {
  EXPECT_EQ(run(KEELHOUSE_PROGRAM,
                {"--root", folder_.path(), "record", "password", "joe", "--admin", "root"}, "pw\n"),
            2);
  EXPECT_EQ(run(KEELHOUSE_PROGRAM, {"--root", folder_.path(), "record", "password", "joe"}, ""), 2);
  EXPECT_THAT(error_, StartsWith("keelhouse: the password is empty"));
  EXPECT_TRUE(daemon_.requests().empty());
}

}  // namespace
}  // namespace paddock::keelhouse
