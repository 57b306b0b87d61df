#include "privileges/bundle_programs.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>

#include "support/privileges_fixture.h"

namespace paddock {

namespace {

constexpr const char* kProgram =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
constexpr std::int32_t kBefore = 77;

class EffectivePermissions : public PrivilegesFixture {
 protected:
  Status get(const ProgramOutcome& outcome, std::uint32_t uid = 501) {
    programs.setOutcome(kProgram, outcome);
    result = kBefore;
    return get_effective_permissions("/srv/a b", uid, result);
  }
  static ProgramOutcome printing(const std::string& output, const std::string& error = "") {
    ProgramOutcome outcome;
    outcome.output = output;
    outcome.errorOutput = error;
    return outcome;
  }

  std::int32_t result = kBefore;
};

TEST_F(EffectivePermissions, AreWhatTheProgramOfTheBundlePrints) {
  EXPECT_EQ(get(printing("142\n")), kSuccess);
  EXPECT_EQ(result, 142);
  ASSERT_EQ(programs.runs().size(), 1U);
  EXPECT_EQ(programs.runs().front().path, kProgram);
  EXPECT_EQ(programs.runs().front().arguments,
            (std::vector<std::string>{"-p", "/srv/a b", "-u", "501"}));
}

TEST_F(EffectivePermissions, AUserIdIsPassedUnsigned) {
  get(printing("0"), 0xFFFFFFFF);
  get(printing("0"), 0x80000000);
  EXPECT_EQ(programs.runs()[0].arguments[3], "4294967295");
  EXPECT_EQ(programs.runs()[1].arguments[3], "2147483648");
}

TEST_F(EffectivePermissions, AreReadAsALeadingNumber) {
  const std::vector<std::pair<const char*, std::int32_t>> cases = {
      {"  6\n", 6},       {"", 0},
      {"x7", 0},          {"\t-5", -5},
      {"+9 and more", 9}, {"99999999999", 2147483647}};
  for (const auto& [text, number] : cases) {
    EXPECT_EQ(get(printing(text)), kSuccess);
    EXPECT_EQ(result, number) << text;
  }
}

TEST_F(EffectivePermissions, AMissingProgramIsLogged) {
  programs.setMissing(kEffectivePrivsPath);
  EXPECT_EQ(get(printing("6")), -1);
  EXPECT_EQ(result, kBefore);
  EXPECT_TRUE(programs.runs().empty());
  expectErrors("get_effective_permissions",
               {std::string("Cannot get effective permissions because ") + kProgram +
                " executable is missing"});
}

TEST_F(EffectivePermissions, FailedProgramLaunchReturnsItsStatus) {
  ProgramOutcome outcome = printing("6", "x");
  outcome.status = ETIMEDOUT;
  EXPECT_EQ(get(outcome), ETIMEDOUT);
  EXPECT_EQ(result, kBefore);
}

TEST_F(EffectivePermissions, AnythingOnStandardErrorIsAFailure) {
  EXPECT_EQ(get(printing("6", "\n")), -1);
  EXPECT_EQ(result, kBefore);
}

constexpr const char* kFirstFile = "/tmp/CopyPrivsTemp.000001";

class Propagation : public PrivilegesFixture {
 protected:
  Status start(const std::string& path = kFolder, PropagationMask mask = 63) {
    return start_propagate_privs(context, path, mask);
  }
  Status status(const Value& process = 4711, const std::string& file = kFirstFile) {
    return get_copyprivs_status(context, &process, found, file);
  }
  bool isIdle() const { return context.snapshot() == Dictionary{{"contextDirty", true}}; }
  static Dictionary running(int pid = 4711, const char* file = kFirstFile) {
    return {{"copyPrivsPid", pid},
            {"copyPrivsActive", true},
            {"copyPrivsStatusFile", file},
            {"contextDirty", true}};
  }
  void expectLine(int priority, const std::string& text) {
    EXPECT_EQ(logger.lines(),
              (Lines{{priority, "paddock_sharing:launch_propagate_command " + text}}));
    logger.clear();
  }

  Context context;
  std::optional<Dictionary> found;
};

TEST_F(Propagation, StartRunsBundleProgramDetached) {
  EXPECT_EQ(start("/srv/a b", 32), kSuccess);
  ASSERT_EQ(programs.detached().size(), 1U);
  EXPECT_EQ(programs.detached().front().path,
            "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs");
  EXPECT_EQ(
      programs.detached().front().arguments,
      (std::vector<std::string>{"CopyPrivs", "-p", "/srv/a b", "-f", "32", "-s", kFirstFile}));
  EXPECT_EQ(context.snapshot(), running());
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(Propagation, LaunchReturnsChildProcessId) {
  EXPECT_EQ(launch_propagate_command(context, kFolder, 0), 4711);
  programs.setMissing(kCopyPrivsPath);
  EXPECT_EQ(launch_propagate_command(context, kFolder, 0), -1);
}

TEST_F(Propagation, MissingProgramIsLoggedAndCreatesNothing) {
  programs.setMissing(kCopyPrivsPath);
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  expectLine(3,
             "Cannot propagate permissions because "
             "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs executable is "
             "missing");
  EXPECT_FALSE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, MissingStatusFileStartsAndLogsNothing) {
  statusFiles.setCreateError(ENOSPC);
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  EXPECT_TRUE(programs.detached().empty());
  EXPECT_TRUE(logger.lines().empty());
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, FailedForkIsLoggedAndKeepsEmptyFile) {
  programs.setDetachedStart({.error = EAGAIN, .pid = 0, .detachError = 0});
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  expectLine(11, "paddock_sharing: cannot fork(" + std::string(kCopyPrivsPath) +
                     "): Resource temporarily unavailable\n");
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, FailedPreparationLogsNoForkFailureLeavesNothing) {
  programs.setDetachedStart({.error = 0, .pid = 0, .detachError = 0, .prepareError = EINVAL});
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  expectLine(3, "Cannot propagate permissions because " + std::string(kCopyPrivsPath) +
                    " cannot be started: Invalid argument");
  EXPECT_FALSE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(context.snapshot().empty());
}

// Memory ends before there is a child.
class StarvedProgramRunner : public RecordingProgramRunner {
 public:
  DetachedStart startDetached(const std::string&, const std::vector<std::string>&) override {
    throw std::bad_alloc();
  }
};

TEST_F(Propagation, WithoutMemoryNothingStartsAndNothingIsLogged) {
  StarvedProgramRunner starved;
  Services services = doubles();
  services.programRunner = &starved;
  const ServicesGuard guard(services);
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  errno = 0;
  EXPECT_EQ(launch_propagate_command(context, kFolder, 1), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_FALSE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(logger.lines().empty());
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, FailedDetachIsLoggedAndKeepsRun) {
  programs.setDetachedStart({.error = 0, .pid = 99, .detachError = EMFILE});
  EXPECT_EQ(start(), kSuccess);
  expectLine(11, "paddock_sharing: child #99 cannot daemonize(" + std::string(kCopyPrivsPath) +
                     "): Too many open files\n");
  EXPECT_EQ(context.snapshot(), running(99));
  EXPECT_EQ(status(99), kSuccess);
  EXPECT_EQ(found, std::nullopt);
  EXPECT_EQ(context.snapshot(), running(99));
}

TEST_F(Propagation, NewStartReplacesKeptRun) {
  ASSERT_EQ(start(), kSuccess);
  programs.setDetachedStart({.error = 0, .pid = 5000, .detachError = 0});
  ASSERT_EQ(start(), kSuccess);
  EXPECT_EQ(context.snapshot(), running(5000, "/tmp/CopyPrivsTemp.000002"));
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
}

TEST_F(Propagation, PartialStatusIsReturnedAndRunKept) {
  ASSERT_EQ(start(), kSuccess);
  statusFiles.write(kFirstFile, Dictionary{{"itemsDone", 3}});
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, (Dictionary{{"itemsDone", 3}}));
  EXPECT_EQ(context.snapshot(), running());
}

TEST_F(Propagation, CompletedRunIsReturnedOnceAndFileRemoved) {
  ASSERT_EQ(start(), kSuccess);
  const Dictionary completed{{"status", "completed"}, {"itemsDone", 9}};
  statusFiles.write(kFirstFile, completed);
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, completed);
  EXPECT_FALSE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(isIdle());
  EXPECT_EQ(status(), COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR);
  EXPECT_EQ(found, std::nullopt);
}

TEST_F(Propagation, AStatusOtherThanCompletedIsNoEnd) {
  ASSERT_EQ(start(), kSuccess);
  for (const Value& text : {Value("Completed"), Value("running"), Value(1)}) {
    statusFiles.write(kFirstFile, Dictionary{{"status", text}});
    EXPECT_EQ(status(), kSuccess);
    EXPECT_EQ(context.snapshot(), running());
  }
}

TEST_F(Propagation, AMissingStatusFileRetiresTheRun) {
  ASSERT_EQ(start(), kSuccess);
  statusFiles.erase(kFirstFile);
  EXPECT_EQ(status(), COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR);
  EXPECT_TRUE(isIdle());
}

TEST_F(Propagation, NonDictionaryFileIsIgnoredAndKeepsRun) {
  ASSERT_EQ(start(), kSuccess);
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, std::nullopt);
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
  EXPECT_EQ(context.snapshot(), running());
}

TEST_F(Propagation, PresentForbiddenOrGoneProcessCountsAsRunning) {
  ASSERT_EQ(start(), kSuccess);
  for (const int error : {0, EPERM, ESRCH}) {
    programs.setProbeError(error);
    EXPECT_EQ(status(), kSuccess);
    EXPECT_EQ(context.snapshot(), running()) << error;
  }
}

TEST_F(Propagation, OtherProbeFailureReturnsStatusAndRetiresRun) {
  ASSERT_EQ(start(), kSuccess);
  programs.setProbeError(EINVAL);
  statusFiles.write(kFirstFile, Dictionary{{"itemsDone", 3}});
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, (Dictionary{{"itemsDone", 3}}));
  EXPECT_TRUE(isIdle());
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
}

TEST_F(Propagation, ProcessIdIsNumberOrDecimalText) {
  statusFiles.write(kFirstFile, Dictionary{});
  status(12);
  status("13");
  status(-1);
  status("x");
  EXPECT_EQ(get_copyprivs_status(context, nullptr, found, kFirstFile), kSuccess);
  EXPECT_EQ(programs.probed(), (std::vector<std::int64_t>{12, 13, -1, 0, 0}));
}

}  // namespace

}  // namespace paddock
