// Traces of changes whose end was not observed, and changes that are refused because no audit line
// could be written for them.

#include "daemon/audit/begun_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <system_error>

#include "daemon/audit/audit_log.h"
#include "paddock/sys_logger.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

AuditEntry change(const std::string& request = "r-1") {
  AuditEntry entry;
  entry.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000007));
  entry.request = request;
  entry.peer = {1000, 1000, 77};
  entry.plugin = "paddock_sharing";
  entry.operation = "writeSettings";
  entry.subject.path = "/srv/a";
  return entry;
}

class BegunChangeTraces : public ::testing::Test {
 protected:
  BegunChangeTraces() {
    installLogSink([this](int, const std::string& line) { messages_.push_back(line); });
  }
  ~BegunChangeTraces() override { installLogSink(nullptr); }

  std::string log() const { return folder_.path("audit.jsonl"); }
  std::string begun() const { return folder_.path("begun"); }
  std::size_t filesLeft() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(begun()),
                                                  std::filesystem::directory_iterator()));
  }
  // A process of its own makes the change, and is killed after `steps` of it.
  void killWhileChanging(bool required, bool written) const {
    const pid_t child = ::fork();
    if (child == 0) {
      AuditLog audit(log(), begun());
      const AuditedChange made(audit, change(), required);
      AuditEntry done = change();
      done.status = 0;
      if (written) audit.write(done);
      ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
  }

  TestFolder folder_;
  std::vector<std::string> messages_;
};

TEST_F(BegunChangeTraces, AChangeThatEndsLeavesItsLineAlone) {
  AuditEntry done = change();
  done.status = 0;
  {
    AuditLog audit(log(), begun());
    const AuditedChange made(audit, change(), false);
    EXPECT_EQ(filesLeft(), 1U);
    audit.write(done);
  }
  EXPECT_EQ(filesLeft(), 0U);
  const AuditLog next(log(), begun());
  EXPECT_EQ(readWholeFile(log()), auditLine(done));
  EXPECT_THAT(messages_, IsEmpty());
}

TEST_F(BegunChangeTraces, KilledDaemonLeavesTraceOfChange) {
  for (const bool required : {false, true}) {
    std::filesystem::remove(log());
    killWhileChanging(required, false);
    EXPECT_EQ(readWholeFile(log()), "");
    const AuditLog next(log(), begun());
    EXPECT_EQ(readWholeFile(log()),
              R"({"interrupted":true,"operation":"writeSettings","path":"/srv/a","pid":77,)"
              R"("plugin":"paddock_sharing","request":"r-1","time":"2023-11-14T22:13:20.007Z",)"
              R"("uid":1000})"
              "\n");
    EXPECT_EQ(filesLeft(), 0U);
  }
}

TEST_F(BegunChangeTraces, AlreadyWrittenLineIsNotRepeated) {
  killWhileChanging(false, true);
  const std::string line = readWholeFile(log());
  EXPECT_THAT(line, HasSubstr("\"status\":0"));
  EXPECT_EQ(filesLeft(), 1U);
  const AuditLog next(log(), begun());
  EXPECT_EQ(readWholeFile(log()), line);
  EXPECT_EQ(filesLeft(), 0U);
}

TEST_F(BegunChangeTraces, TruncatedTraceCountsAsNoChange) {
  std::filesystem::create_directory(begun());
  std::filesystem::permissions(begun(), std::filesystem::perms::owner_all);
  writeWholeFile(begun() + "/r-9", R"({"operation":"writeSet)");
  const AuditLog next(log(), begun());
  EXPECT_EQ(readWholeFile(log()), "");
  EXPECT_EQ(filesLeft(), 0U);
}

TEST_F(BegunChangeTraces, ADeletedLogIsMadeAgain) {
  AuditLog audit(log(), begun());
  std::filesystem::remove(log());
  const AuditedChange made(audit, change(), true);
  AuditEntry done = change();
  done.status = 0;
  audit.write(done);
  EXPECT_EQ(readWholeFile(log()), auditLine(done));
}

TEST_F(BegunChangeTraces, ChangeWithoutWritableLogIsRefused) {
  AuditLog audit(log(), begun());
  std::filesystem::remove(log());
  std::filesystem::create_directory(log());
  EXPECT_THROW(AuditedChange(audit, change(), true), std::system_error);
  EXPECT_EQ(filesLeft(), 0U);
  EXPECT_NO_THROW(AuditedChange(audit, change(), false));
  std::filesystem::remove(log());
  EXPECT_NO_THROW(AuditedChange(audit, change(), true));
}

// On a volume of the test's own.
class FullVolume : public BegunChangeTraces {
 protected:
  void SetUp() override {
    if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  }
  std::string volume() const { return folder_.path("volume"); }
  std::string logThere() const { return volume() + "/audit.jsonl"; }
  void fill() const {
    std::ofstream file(volume() + "/ballast");
    while (file.put('x').flush()) {
    }
  }
  void withVolume(const std::function<void()>& body) {
    std::filesystem::create_directory(volume());
    runInOwnMounts([&] {
      ASSERT_EQ(::mount("tmpfs", volume().c_str(), "tmpfs", 0, "size=256k"), 0);
      body();
    });
  }
};

TEST_F(FullVolume, AChangeIsRefusedBeforeItIsMade) {
  withVolume([this] {
    AuditLog audit(logThere(), begun());
    fill();
    EXPECT_THROW(AuditedChange(audit, change(), true), std::system_error);
    EXPECT_EQ(filesLeft(), 0U);
    std::filesystem::remove(volume() + "/ballast");
    EXPECT_NO_THROW(AuditedChange(audit, change(), true));
  });
}

TEST_F(FullVolume, AdmittedChangeHasReservedSpace) {
  withVolume([this] {
    AuditLog audit(logThere(), begun());
    AuditEntry done = change();
    done.status = 100076;
    {
      const AuditedChange made(audit, change(), true);
      fill();
      // Nor do others take it.
      AuditEntry refused = change("r-2");
      refused.subject.path = std::string(900, 'x');
      for (int count = 0; count < 9; ++count) audit.write(refused);
      audit.write(done);
    }
    EXPECT_TRUE(readWholeFile(logThere()).ends_with(auditLine(done)));
    EXPECT_EQ(filesLeft(), 0U);
  });
}

TEST_F(FullVolume, UnwrittenLineFollowsLaterOrAfterRestart) {
  withVolume([this] {
    AuditEntry done = change();
    done.status = 0;
    {
      AuditLog audit(logThere(), begun());
      {
        const AuditedChange made(audit, change(), false);
        fill();
        audit.write(done);
      }
      EXPECT_EQ(filesLeft(), 1U) << "the trace stays";
      EXPECT_THROW(AuditedChange(audit, change("r-2"), true), std::system_error);
      std::filesystem::remove(volume() + "/ballast");
      audit.tick();
      EXPECT_EQ(readWholeFile(logThere()), auditLine(done));
      EXPECT_EQ(filesLeft(), 0U);
      {
        AuditEntry another = change("r-3");
        another.subject.path = std::string(8000, 'x');
        const AuditedChange made(audit, another, false);
        fill();
        another.status = 0;
        audit.write(another);
      }
    }
    std::filesystem::remove(volume() + "/ballast");
    const AuditLog next(logThere(), begun());
    // On a line of its own behind the part that had room.
    EXPECT_THAT(readWholeFile(logThere()), HasSubstr("\n{\"interrupted\":true"));
    EXPECT_EQ(filesLeft(), 0U);
  });
}

}  // namespace
}  // namespace paddock
