// `keelhouse propagate` on real trees, by way of the running daemon, with the program that does it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "base/file_access.h"
#include "integration/keelhouse_fixture.h"
#include "support/scripted_propagation.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kContents = "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/";
constexpr const char* kAttribute = "security.NTACL";

class KeelhousePropagation : public KeelhouseFixture {
 protected:
  void SetUp() override {
    KeelhouseFixture::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    fs::copy_file(COPYPRIVS_PROGRAM, program());
    fs::create_directories(tree_.path("/tmp"));
    shared_ = makeFolder("shared");
    makeFolder("shared/inner/deep");
    writeWholeFile(file(), "x");
    ASSERT_EQ(::chmod(file().c_str(), 0711), 0);
  }

  std::string program() const { return tree_.path(std::string(kContents) + "copyprivs"); }
  std::string file() const { return shared_ + "/inner/file"; }
  bool keepsLists() const {
    if (::setxattr(shared_.c_str(), kAttribute, "probe", 5, 0) != 0) return false;
    return ::removexattr(shared_.c_str(), kAttribute) == 0;
  }
  static struct stat attributes(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
  }
  // Where the runs' status files are.
  bool hasStatusFile() const {
    for (const auto& entry : fs::directory_iterator(tree_.path("/tmp"))) {
      if (entry.path().filename().string().starts_with("CopyPrivsTemp.")) return true;
    }
    return false;
  }

  std::string shared_;
};

TEST_F(KeelhousePropagation, OwnerGroupAndModeArePushedDown) {
  ASSERT_EQ(::symlink("file", (shared_ + "/inner/link").c_str()), 0);
  done({"privs", "set", shared_, "--owner", "daemon", "--group", "games", "--mode", "750"});
  const std::string output = done({"propagate", shared_, "--owner", "--group", "--owner-perm",
                                   "--group-perm", "--world-perm", "--follow"});
  EXPECT_THAT(output, HasSubstr(shared_ + ": 4 objects, 4 changed, 0 errors, in 0 s\n"));
  for (const std::string path : {"/inner", "/inner/deep", "/inner/file", "/inner/link"}) {
    EXPECT_EQ(attributes(shared_ + path).st_uid, 1U) << path;
    EXPECT_EQ(attributes(shared_ + path).st_gid, 60U) << path;
  }
  EXPECT_EQ(attributes(shared_ + "/inner").st_mode & 07777U, 0750U);
  EXPECT_EQ(attributes(file()).st_mode & 07777U, 0751U);
  EXPECT_FALSE(hasStatusFile());
}

TEST_F(KeelhousePropagation, InheritedEntriesArePushedDownBehindOwnEntries) {
  if (!keepsLists()) GTEST_SKIP() << "no ACL can be kept on " << shared_;
  done({"acl", "set", shared_, "allow", "group:nogroup", "read:inherit", "allow", "user:daemon",
        "write"});
  done({"acl", "set", file(), "deny", "user:nobody", "write-data"});
  done({"propagate", shared_, "--acl", "--follow"});
  EXPECT_EQ(done({"acl", "show", file()}),
            "NO  ACTION  WHO            RIGHTS      INHERITANCE  NAME\n"
            "1   deny    user:nobody    write-data  -            -\n"
            "2   allow   group:nogroup  read        inherited    -\n");
  EXPECT_THAT(done({"acl", "show", shared_ + "/inner/deep"}),
              HasSubstr("1   allow   group:nogroup  read    inherit,inherited  -\n"));
  done({"acl", "clear", shared_});
  done({"propagate", shared_, "--acl", "--follow"});
  EXPECT_EQ(done({"acl", "show", file()}),
            "NO  ACTION  WHO          RIGHTS      INHERITANCE  NAME\n"
            "1   deny    user:nobody  write-data  -            -\n");
}

TEST_F(KeelhousePropagation, WhatIsDoneAlreadyIsNotDoneTwice) {
  done({"privs", "set", shared_, "--group", "games"});
  EXPECT_THAT(done({"propagate", shared_, "--group", "--follow"}), HasSubstr("3 changed"));
  EXPECT_THAT(done({"propagate", shared_, "--group", "--follow"}), HasSubstr("0 changed"));
}

TEST_F(KeelhousePropagation, DryRunReportsChangesWithoutApplyingThem) {
  done({"privs", "set", shared_, "--group", "games", "--mode", "700"});
  EXPECT_EQ(::chown((shared_ + "/inner/deep").c_str(), 0, 60), 0);
  const std::string output = done({"propagate", shared_, "--group", "--world-perm", "--dry-run"});
  EXPECT_THAT(output, AllOf(HasSubstr(": 3 objects, 3 would change, 0 errors"),
                            HasSubstr("group,mode  " + shared_ + "/inner\n"),
                            HasSubstr("mode        " + shared_ + "/inner/deep\n"),
                            HasSubstr(shared_ + "/inner/file\n")));
  EXPECT_EQ(attributes(file()).st_gid, 0U);
  EXPECT_EQ(attributes(file()).st_mode & 07777U, 0711U);
  EXPECT_FALSE(hasStatusFile());
  EXPECT_THAT(done({"propagate", shared_, "--group", "--world-perm", "--follow"}),
              HasSubstr(": 3 objects, 3 changed, 0 errors"));
  EXPECT_THAT(done({"propagate", shared_, "--group", "--world-perm", "--dry-run"}),
              HasSubstr(": 3 objects, 0 would change, 0 errors"));
}

TEST_F(KeelhousePropagation, TheLastStatusIsPrintedAsJson) {
  std::string error;
  const auto reply =
      wire::parseJson(done({"propagate", shared_, "--owner", "--follow", "--json"}), error);
  ASSERT_TRUE(reply && reply->dictionary() != nullptr) << error;
  EXPECT_EQ(*reply->dictionary()->string("path"), shared_);
  const Dictionary* status = reply->dictionary()->dictionary("status");
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(*status->string("status"), "completed");
  EXPECT_EQ(status->integer("itemsTotal"), 3);
  EXPECT_EQ(status->integer("mask"), 1);
}

TEST_F(KeelhousePropagation, UnfollowedRunIsReportedOnceAfterEnd) {
  done({"propagate", shared_, "--owner"});
  ASSERT_TRUE(eventually([this] {
    return keelhouse({"propagate", shared_, "--follow"}).status == 0;
  }));
  const EndedProgram again = keelhouse({"propagate", shared_, "--follow"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.error, HasSubstr("no run works on " + shared_));
  EXPECT_FALSE(hasStatusFile());
}

TEST_F(KeelhousePropagation, AMissingProgramIsSaid) {
  fs::remove(program());
  const EndedProgram ended = keelhouse({"propagate", shared_, "--owner", "--follow"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.error, HasSubstr("(CANNOT_PROPAGATE_PRIVS_ERR, 100054)\n  error: "));
}

// A file that even root cannot change, as long as it lives.
class ImmutableFile {
 public:
  explicit ImmutableFile(const std::string& path) : path_(path) {
    writeWholeFile(path, "x");
    isThere_ = setFlag(FS_IMMUTABLE_FL);
  }
  ImmutableFile(const ImmutableFile&) = delete;
  ImmutableFile& operator=(const ImmutableFile&) = delete;
  ~ImmutableFile() { setFlag(0); }
  bool isThere() const { return isThere_; }

 private:
  bool setFlag(int flag) const {
    const FileDescriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    int flags = 0;
    if (::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) return false;
    flags = (flags & ~FS_IMMUTABLE_FL) | flag;
    return ::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0;
  }
  const std::string path_;
  bool isThere_ = false;
};

TEST_F(KeelhousePropagation, FailedObjectsAreNamedAndRestIsDone) {
  const ImmutableFile immutable(shared_ + "/inner/a\nb\x1B");
  if (!immutable.isThere()) GTEST_SKIP() << "no file can be made immutable on " << shared_;
  done({"privs", "set", shared_, "--group", "games"});
  const EndedProgram ended = keelhouse({"propagate", shared_, "--group", "--follow"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.output, HasSubstr(": 4 objects, 3 changed, 1 error, in 0 s\n"));
  EXPECT_THAT(ended.error,
              AllOf(StartsWith("keelhouse: 1 object in " + shared_ + " could not be set"),
                    HasSubstr("\n  " + shared_ + "/inner/a\\x0Ab\\x1B: "),
                    HasSubstr("Operation not permitted")));
  EXPECT_EQ(attributes(file()).st_gid, 60U);
}

TEST_F(KeelhousePropagation, AStoppedRunIsFinishedByTheNext) {
  // They take longer than a start of keelhouse, or more of them do.
  constexpr int kMoreFiles = 20000;
  int files = 0;
  bool wasStopped = false;
  for (int attempt = 0; attempt < 10 && !wasStopped; ++attempt) {
    for (const int enough = files + kMoreFiles; files < enough; ++files)
      writeWholeFile(shared_ + "/inner/" + std::to_string(files), "");
    done({"privs", "set", shared_, "--group", attempt % 2 == 0 ? "games" : "nogroup"});
    done({"propagate", shared_, "--group"});
    wasStopped = keelhouse({"propagate", shared_, "--stop"}).output.find(": stopped after ") !=
                 std::string::npos;
    // One that had ended before has yet to be reported.
    if (!wasStopped) keelhouse({"propagate", shared_, "--follow"});
  }
  ASSERT_TRUE(wasStopped) << "every run ended before it could be stopped";
  EXPECT_FALSE(hasStatusFile());
  EXPECT_THAT(done({"propagate", shared_, "--group", "--follow"}),
              AllOf(HasSubstr(": " + std::to_string(files + 3) + " objects"),
                    HasSubstr(", 0 errors"), Not(HasSubstr(" 0 changed"))));
  const gid_t wanted = attributes(shared_).st_gid;
  for (const auto& entry : fs::recursive_directory_iterator(shared_)) {
    ASSERT_EQ(attributes(entry.path()).st_gid, wanted) << entry.path();
  }
}

// The same with a program that goes on for as long as the test wants.
class KeelhouseFollowing : public KeelhouseFixture {
 protected:
  void SetUp() override {
    KeelhouseFixture::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    shared_ = makeFolder("shared");
    program_.emplace(tree_.root());
    program_->waits();
    program_->says("begin", status("running", 5));
    program_->says("end", status("completed", 10));
  }
  void TearDown() override {
    std::error_code ignored;
    if (program_) fs::remove(program_->program() + ".wait", ignored);
    KeelhouseFixture::TearDown();
  }
  static std::string status(const char* state, int done) {
    return ScriptedPropagation::status(
        ScriptedPropagation::text("status", state) + ScriptedPropagation::text("path", "@PATH@") +
        ScriptedPropagation::number("itemsDone", done) +
        ScriptedPropagation::number("itemsTotal", 10) + ScriptedPropagation::number("pid", 1));
  }

  std::string shared_;
  std::optional<ScriptedPropagation> program_;
};

TEST_F(KeelhouseFollowing, GoesOnWhenTheDaemonIsStartedAgain) {
  const std::string output = folder_.path("output");
  StartedProcess follower("/bin/sh",
                          {"sh", "-c", "exec \"$0\" propagate \"$1\" --acl --follow >\"$2\" 2>&1",
                           tree_.path("/usr/sbin/keelhouse"), shared_, output});
  waitUntil([&] { return readWholeFile(output).find("5 of 10") != std::string::npos; });
  EXPECT_EQ(daemon_->stop(), 0);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  startDaemon();
  program_->finish();
  const int status = follower.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readWholeFile(output);
  EXPECT_THAT(readWholeFile(output), HasSubstr(shared_ + ": 10 objects, 0 changed, 0 errors"));
}

TEST_F(KeelhouseFollowing, MayBeginWhenARunIsGoing) {
  done({"propagate", shared_, "--owner", "--acl"});
  ASSERT_TRUE(eventually([this] {
    return done({"status"}).find("5 of 10 objects (50%), 0 errors, process ") != std::string::npos;
  }));
  EXPECT_THAT(done({"status"}), HasSubstr("propagation " + shared_ + "  owner, acl, "));
  const EndedProgram second = keelhouse({"propagate", shared_, "--group"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.error, HasSubstr("a run works on " + shared_ + " already"));
  program_->finish();
  EXPECT_THAT(done({"propagate", shared_, "--follow"}), HasSubstr(": 10 objects, 0 changed"));
  EXPECT_THAT(done({"status"}), Not(HasSubstr("propagation")));
}

TEST_F(KeelhouseFollowing, IsToldOfAStop) {
  program_->says("stopped",
                 ScriptedPropagation::status(ScriptedPropagation::text("status", "completed") +
                                             "<key>stopped</key><true/>"));
  const std::string output = folder_.path("output");
  StartedProcess follower("/bin/sh",
                          {"sh", "-c", "exec \"$0\" propagate \"$1\" --acl --follow >\"$2\" 2>&1",
                           tree_.path("/usr/sbin/keelhouse"), shared_, output});
  waitUntil([&] { return readWholeFile(output).find("5 of 10") != std::string::npos; });
  // The first request gets the counts, and removes the status file.
  EXPECT_THAT(done({"propagate", shared_, "--stop"}), StartsWith(shared_ + ": stopped"));
  const int status = follower.wait();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
  EXPECT_THAT(readWholeFile(output), HasSubstr("was stopped before its end\n"));
}

TEST_F(KeelhouseFollowing, SomebodyWithoutRightsIsRefused) {
  fs::permissions(folder_.path(), fs::perms::others_exec, fs::perm_options::add);
  const auto asNobody = [this](const std::vector<std::string>& words) {
    std::vector<std::string> all = {"/usr/bin/setpriv",
                                    "--reuid=65534",
                                    "--regid=65534",
                                    "--clear-groups",
                                    tree_.path("/usr/sbin/keelhouse"),
                                    "propagate",
                                    shared_};
    all.insert(all.end(), words.begin(), words.end());
    return runProgram(all);
  };
  const EndedProgram started = asNobody({"--owner"});
  EXPECT_EQ(started.status, 1);
  EXPECT_THAT(started.error, HasSubstr("HTTP 403"));
  EXPECT_EQ(program_->arguments(), "");
  const EndedProgram stopped = asNobody({"--stop"});
  EXPECT_EQ(stopped.status, 1);
  EXPECT_THAT(stopped.error, HasSubstr("takes root"));
  const EndedProgram tried = asNobody({"--owner", "--dry-run"});
  EXPECT_EQ(tried.status, 1);
  EXPECT_THAT(tried.error, HasSubstr("HTTP 403"));
  done({"propagate", shared_, "--owner"});
  // Which runs there are, everybody may see.
  const EndedProgram following = asNobody({"--follow"});
  EXPECT_EQ(following.status, 1);
  EXPECT_THAT(following.error, HasSubstr("HTTP 403"));
}

}  // namespace
}  // namespace paddock::testing
