#include "privileges/propagation.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>

#include "privileges/bundle_programs.h"
#include "support/privileges_fixture.h"

namespace paddock {
namespace {

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

TEST_F(Propagation, AStartRunsTheProgramOfTheBundleDetached) {
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

TEST_F(Propagation, TheResultOfALaunchIsTheChildsProcessId) {
  EXPECT_EQ(launch_propagate_command(context, kFolder, 0), 4711);
  programs.setMissing(kCopyPrivsPath);
  EXPECT_EQ(launch_propagate_command(context, kFolder, 0), -1);
}

TEST_F(Propagation, AMissingProgramIsLoggedAndNothingIsMade) {
  programs.setMissing(kCopyPrivsPath);
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  expectLine(3,
             "Cannot propagate permissions because "
             "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs executable is "
             "missing");
  EXPECT_FALSE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, WithoutAStatusFileNothingStartsAndNothingIsLogged) {
  statusFiles.setCreateError(ENOSPC);
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  EXPECT_TRUE(programs.detached().empty());
  EXPECT_TRUE(logger.lines().empty());
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, AFailedForkIsLoggedAndLeavesTheEmptyStatusFile) {
  programs.setDetachedStart({.error = EAGAIN, .pid = 0, .detachError = 0});
  EXPECT_EQ(start(), CANNOT_PROPAGATE_PRIVS_ERR);
  expectLine(11, "paddock_sharing: cannot fork(" + std::string(kCopyPrivsPath) +
                     "): Resource temporarily unavailable\n");
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
  EXPECT_TRUE(context.snapshot().empty());
}

TEST_F(Propagation, AForkThatWasNotTriedIsNotLoggedAsOneThatFailedAndLeavesNoFile) {
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

TEST_F(Propagation, AChildThatCannotDetachIsLoggedAndTheRunIsKept) {
  programs.setDetachedStart({.error = 0, .pid = 99, .detachError = EMFILE});
  EXPECT_EQ(start(), kSuccess);
  expectLine(11, "paddock_sharing: child #99 cannot daemonize(" + std::string(kCopyPrivsPath) +
                     "): Too many open files\n");
  EXPECT_EQ(context.snapshot(), running(99));
  EXPECT_EQ(status(99), kSuccess);
  EXPECT_EQ(found, std::nullopt);
  EXPECT_EQ(context.snapshot(), running(99));
}

TEST_F(Propagation, ANewStartTakesThePlaceOfTheRunThatIsKept) {
  ASSERT_EQ(start(), kSuccess);
  programs.setDetachedStart({.error = 0, .pid = 5000, .detachError = 0});
  ASSERT_EQ(start(), kSuccess);
  EXPECT_EQ(context.snapshot(), running(5000, "/tmp/CopyPrivsTemp.000002"));
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
}

TEST_F(Propagation, ThePartialStatusOfARunIsHandedOutAndTheRunKept) {
  ASSERT_EQ(start(), kSuccess);
  statusFiles.write(kFirstFile, Dictionary{{"itemsDone", 3}});
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, (Dictionary{{"itemsDone", 3}}));
  EXPECT_EQ(context.snapshot(), running());
}

TEST_F(Propagation, ACompletedRunIsHandedOutOnceAndItsFileRemoved) {
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

TEST_F(Propagation, AFileThatHoldsNoDictionaryIsNoStatusAndTheRunIsKept) {
  ASSERT_EQ(start(), kSuccess);
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, std::nullopt);
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
  EXPECT_EQ(context.snapshot(), running());
}

TEST_F(Propagation, AProcessThatIsThereOrForbiddenOrGoneCountsAsRunning) {
  ASSERT_EQ(start(), kSuccess);
  for (const int error : {0, EPERM, ESRCH}) {
    programs.setProbeError(error);
    EXPECT_EQ(status(), kSuccess);
    EXPECT_EQ(context.snapshot(), running()) << error;
  }
}

TEST_F(Propagation, AnyOtherFailureOfTheProbeRetiresTheRunWithItsStatusHandedOut) {
  ASSERT_EQ(start(), kSuccess);
  programs.setProbeError(EINVAL);
  statusFiles.write(kFirstFile, Dictionary{{"itemsDone", 3}});
  EXPECT_EQ(status(), kSuccess);
  EXPECT_EQ(found, (Dictionary{{"itemsDone", 3}}));
  EXPECT_TRUE(isIdle());
  EXPECT_TRUE(statusFiles.exists(kFirstFile));
}

TEST_F(Propagation, TheProcessIsANumberOrADecimalText) {
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
