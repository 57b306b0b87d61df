// The life of a run that pushes privileges down, through the running daemon: started, asked after,
// retired. A program stands in for the real one, so that the test says how far it is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>

#include "integration/sharing_daemon.h"
#include "support/scripted_propagation.h"
#include "support/temporary_folder.h"
#include "wire/property_list.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::MatchesRegex;

constexpr const char* kFolder = "/srv/projects";
const Dictionary kNotFound{{"error", "COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR"}};
const Dictionary kCannotStart{{"error", "CANNOT_PROPAGATE_PRIVS_ERR"}};
const std::string kRunning = ScriptedPropagation::status(
    ScriptedPropagation::text("status", "running") + ScriptedPropagation::number("itemsDone", 5));
const std::string kCompleted = ScriptedPropagation::status(
    ScriptedPropagation::text("status", "completed") + ScriptedPropagation::number("itemsDone", 9));
const Dictionary kRunningStatus{{"status", "running"}, {"itemsDone", 5}};
const Dictionary kCompletedStatus{{"status", "completed"}, {"itemsDone", 9}};

class PropagationLife : public ::testing::Test {
 protected:
  void TearDown() override { finish(); }

  Dictionary start(Dictionary request = {{"propACL", 1}}) const {
    request.set("paths", Array{kFolder});
    return daemon_.ask("startPropagate", request);
  }
  // With the keys of a start's reply.
  Dictionary status(const Dictionary& run) const {
    return status(*run.find("copyPrivsPid"), fileOf(run));
  }
  Dictionary status(const Value& process, const std::string& file) const {
    return daemon_.ask("statusCopyPrivs",
                       {{"copyPrivsPid", process}, {"copyPrivsStatusFile", file}});
  }
  static std::string fileOf(const Dictionary& run) {
    const std::string* file = run.string("copyPrivsStatusFile");
    EXPECT_NE(file, nullptr);
    return file != nullptr ? *file : "";
  }
  // The status that the run is at, once its program has written one.
  Dictionary firstStatus(const Dictionary& run) const {
    Dictionary reply;
    eventually([&] { return (reply = status(run)).contains("status"); });
    return reply;
  }
  bool isCompleted(const Dictionary& run) const {
    const Dictionary reply = status(run);
    const Dictionary* found = reply.dictionary("status");
    return found != nullptr && *found == kCompletedStatus;
  }
  // What the daemon will read back at its next start.
  Dictionary keptContext() const {
    std::string error;
    const auto value = wire::parsePropertyList(
        daemon_.tree().read("/var/lib/paddock/context/paddock_sharing.plist"), error);
    EXPECT_TRUE(value && value->dictionary() != nullptr) << error;
    return value && value->dictionary() != nullptr ? *value->dictionary() : Dictionary();
  }
  void waits() const {
    program_.waits();
    program_.says("begin", kRunning);
    program_.says("end", kCompleted);
  }
  void finish() const {
    std::error_code ignored;
    fs::remove(program_.program() + ".wait", ignored);
  }

  TestFolder folder_;
  SharingDaemon daemon_;
  ScriptedPropagation program_{daemon_.tree().root()};
};

TEST_F(PropagationLife, ARunIsStartedFollowedAndRetired) {
  waits();
  const Dictionary run = start();
  EXPECT_EQ(*run.string("path"), kFolder);
  EXPECT_GT(run.integer("copyPrivsPid").value_or(0), 0);
  EXPECT_THAT(fileOf(run),
              MatchesRegex(daemon_.tree().root() + "/tmp/CopyPrivsTemp\\.[A-Za-z0-9]*"));
  EXPECT_EQ(firstStatus(run), (Dictionary{{"status", kRunningStatus}}));
  EXPECT_EQ(keptContext().boolean("copyPrivsActive"), true);
  EXPECT_EQ(status(run), (Dictionary{{"status", kRunningStatus}}));
  finish();
  EXPECT_TRUE(eventually([&] { return isCompleted(run); }));
  EXPECT_FALSE(fs::exists(fileOf(run)));
  EXPECT_FALSE(keptContext().contains("copyPrivsActive"));
  EXPECT_FALSE(keptContext().contains("copyPrivsPid"));
  EXPECT_FALSE(keptContext().contains("copyPrivsStatusFile"));
  EXPECT_EQ(status(run), kNotFound);
}

TEST_F(PropagationLife, ProgramReceivesFolderMaskAndOwnersStatusFile) {
  const Dictionary run = start({{"propOwnerName", 1}, {"propACL", 1}, {"propGroupName", 2}});
  EXPECT_TRUE(eventually([this] { return !program_.arguments().empty(); }));
  EXPECT_EQ(program_.arguments(),
            "CopyPrivs\n-p\n" + std::string(kFolder) + "\n-f\n33\n-s\n" + fileOf(run) + "\n");
  struct stat attributes {};
  ASSERT_EQ(::stat(fileOf(run).c_str(), &attributes), 0);
  EXPECT_EQ(attributes.st_mode & 07777U, 0600U);
}

TEST_F(PropagationLife, RunSurvivesDaemonRestart) {
  waits();
  const Dictionary run = start();
  EXPECT_EQ(firstStatus(run), (Dictionary{{"status", kRunningStatus}}));
  daemon_.restart();
  EXPECT_EQ(keptContext().string("copyPrivsStatusFile") != nullptr, true);
  EXPECT_EQ(status(run), (Dictionary{{"status", kRunningStatus}}));
  daemon_.restart();
  finish();
  EXPECT_TRUE(eventually([&] { return isCompleted(run); }));
  EXPECT_FALSE(keptContext().contains("copyPrivsStatusFile"));
  EXPECT_EQ(status(run), kNotFound);
}

TEST_F(PropagationLife, RunContinuesAfterDaemonIsKilled) {
  waits();
  const Dictionary run = start();
  EXPECT_EQ(firstStatus(run), (Dictionary{{"status", kRunningStatus}}));
  daemon_.killAndStart();
  EXPECT_EQ(*keptContext().string("copyPrivsStatusFile"), fileOf(run));
  finish();
  EXPECT_TRUE(eventually([&] { return isCompleted(run); }));
}

TEST_F(PropagationLife, SecondStartReplacesFirstAndKeepsItsFile) {
  waits();
  const Dictionary first = start();
  firstStatus(first);
  const Dictionary second = start();
  EXPECT_NE(fileOf(first), fileOf(second));
  EXPECT_EQ(*keptContext().string("copyPrivsStatusFile"), fileOf(second));
  EXPECT_TRUE(fs::exists(fileOf(first)));
  firstStatus(second);
  finish();
  EXPECT_TRUE(eventually([&] { return isCompleted(second); }));
  EXPECT_TRUE(fs::exists(fileOf(first)));
  EXPECT_TRUE(eventually([&] { return isCompleted(first); }));
  EXPECT_FALSE(fs::exists(fileOf(first)));
}

TEST_F(PropagationLife, CompletingEarlierRunAlsoRetiresRecordedRun) {
  const std::string other = daemon_.tree().path("/tmp/CopyPrivsTemp.earlie");
  waits();
  const Dictionary run = start();
  firstStatus(run);
  writeWholeFile(other, kRunning);
  EXPECT_EQ(status(1, other), (Dictionary{{"status", kRunningStatus}}));
  EXPECT_TRUE(keptContext().contains("copyPrivsActive"));
  writeWholeFile(other, kCompleted);
  EXPECT_EQ(status(1, other), (Dictionary{{"status", kCompletedStatus}}));
  EXPECT_FALSE(keptContext().contains("copyPrivsActive"));
  EXPECT_EQ(status(run), (Dictionary{{"status", kRunningStatus}}));
}

TEST_F(PropagationLife, MissingProgramReturnsErrorAndIsLogged) {
  fs::remove(program_.program());
  EXPECT_EQ(start(), kCannotStart);
  EXPECT_THAT(daemon_.log(),
              HasSubstr("Cannot propagate permissions because "
                        "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs "
                        "executable is missing"));
  EXPECT_TRUE(fs::is_empty(daemon_.tree().path("/tmp")));
}

TEST_F(PropagationLife, WithoutAFolderForStatusFilesNothingStarts) {
  fs::remove_all(daemon_.tree().path("/tmp"));
  writeWholeFile(daemon_.tree().path("/tmp"), "a file");
  EXPECT_EQ(start(), kCannotStart);
  EXPECT_EQ(program_.arguments(), "");
}

TEST_F(PropagationLife, UnrunnableProgramLeavesRunRecorded) {
  writeWholeFile(program_.program(), "no program");
  const Dictionary run = start();
  EXPECT_EQ(status(run), Dictionary{});
  EXPECT_EQ(keptContext().boolean("copyPrivsActive"), true);
  EXPECT_TRUE(fs::exists(fileOf(run)));
}

TEST_F(PropagationLife, NulPathLeavesNoFileOrForkError) {
  EXPECT_EQ(daemon_.ask("startPropagate",
                        {{"paths", Array{std::string("/srv/a\0b", 8)}}, {"propACL", 1}}),
            kCannotStart);
  EXPECT_TRUE(fs::is_empty(daemon_.tree().path("/tmp")));
  EXPECT_THAT(daemon_.log(), HasSubstr("copyprivs cannot be started: Invalid argument"));
  EXPECT_THAT(daemon_.log(), ::testing::Not(HasSubstr("cannot fork")));
}

TEST_F(PropagationLife, EmptyPathArrayReturnsServerErrorReleasingLock) {
  const Response response = daemon_.post("startPropagate", R"({"paths":[],"propACL":1})");
  EXPECT_EQ(response.status, 500);
  EXPECT_THAT(response.body, HasSubstr("\\\"paths\\\" is an empty array"));
  EXPECT_EQ(status(1, folder_.path("missing")), kNotFound);
  EXPECT_EQ(start().contains("copyPrivsPid"), true);
}

TEST_F(PropagationLife, MissingPathsAreAnErrorOfTheModule) {
  EXPECT_EQ(daemon_.ask("startPropagate", {{"propACL", 1}}), kCannotStart);
  EXPECT_EQ(daemon_.ask("startPropagate", {{"paths", kFolder}, {"propACL", 1}}), kCannotStart);
  EXPECT_EQ(daemon_.ask("startPropagate", {{"paths", Array{7}}, {"propACL", 1}}), kCannotStart);
  EXPECT_EQ(program_.arguments(), "");
}

TEST_F(PropagationLife, ProcessMayBeTextNegativeOrMissing) {
  waits();
  const Dictionary run = start();
  firstStatus(run);
  const Dictionary still{{"status", kRunningStatus}};
  for (const Value& process :
       {Value(std::to_string(*run.integer("copyPrivsPid"))), Value("none"), Value(""), Value(-1),
        Value("-99999999"), Value(0), Value(true), Value(Array{1}), Value(Dictionary{}),
        Value(INT64_MIN), Value(INT64_MAX), Value::fromUnsigned(UINT64_MAX), Value("1e3")}) {
    EXPECT_EQ(status(process, fileOf(run)), still);
    EXPECT_EQ(keptContext().boolean("copyPrivsActive"), true);
  }
  EXPECT_EQ(daemon_.ask("statusCopyPrivs", {{"copyPrivsStatusFile", fileOf(run)}}), still);
}

// What the audit log has is said by the plug-in, in the description of the operation.
TEST_F(PropagationLife, RepeatedStatusRequestsAreAuditedOncePerState) {
  const auto audited = [this] {
    std::istringstream lines(daemon_.tree().read("/var/log/paddock/audit.jsonl"));
    int count = 0;
    for (std::string line; std::getline(lines, line);)
      count += line.find(R"("operation":"statusCopyPrivs")") != std::string::npos ? 1 : 0;
    return count;
  };
  waits();
  const Dictionary run = start();
  firstStatus(run);
  const int before = audited();
  for (int count = 0; count < 5; ++count) status(run);
  EXPECT_EQ(audited(), before);
  EXPECT_EQ(status(1, "/nowhere"), kNotFound);
  EXPECT_EQ(status(1, "/nowhere"), kNotFound);
  EXPECT_EQ(audited(), before + 1) << "another run";
  EXPECT_THAT(before, AllOf(Ge(1), Le(2))) << "nothing yet, and running";
}

TEST_F(PropagationLife, StatusFileMayBeMissingOrMistyped) {
  waits();
  const Dictionary run = start();
  firstStatus(run);
  EXPECT_EQ(daemon_.ask("statusCopyPrivs", {{"copyPrivsPid", 1}}), kNotFound);
  EXPECT_EQ(status(1, ""), kNotFound);
  EXPECT_EQ(daemon_.ask("statusCopyPrivs", {{"copyPrivsStatusFile", Array{fileOf(run)}}}),
            kNotFound);
  EXPECT_TRUE(fs::exists(fileOf(run)));
}

// Files that a client names, and that are neither read nor removed.
class NamedStatusFile : public PropagationLife {
 protected:
  void SetUp() override { writeWholeFile(path_, kCompleted); }

  void expectLeftAlone(const std::string& path) {
    start();
    const Dictionary before = keptContext();
    EXPECT_EQ(status(1, path), Dictionary{}) << path;
    EXPECT_TRUE(fs::exists(fs::symlink_status(path))) << path;
    EXPECT_EQ(keptContext(), before);
  }

  const std::string path_ = folder_.path("status");
};

TEST_F(NamedStatusFile, OfDaemonsUserIsReadAndRemoved) {
  EXPECT_EQ(status(1, path_), (Dictionary{{"status", kCompletedStatus}}));
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(NamedStatusFile, ThatIsALinkIsLeftAlone) {
  const std::string link = folder_.path("link");
  fs::create_symlink(path_, link);
  expectLeftAlone(link);
  EXPECT_TRUE(fs::exists(path_));
}

TEST_F(NamedStatusFile, ThatIsDanglingSymlinkIsLeftUntouched) {
  fs::create_symlink("nowhere", folder_.path("link"));
  expectLeftAlone(folder_.path("link"));
}

TEST_F(NamedStatusFile, OfAnotherUserIsLeftAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file another user's";
  ASSERT_EQ(::chown(path_.c_str(), 65534, 65534), 0);
  expectLeftAlone(path_);
}

TEST_F(NamedStatusFile, WithASecondNameIsLeftAlone) {
  fs::create_hard_link(path_, folder_.path("other"));
  expectLeftAlone(path_);
}

TEST_F(NamedStatusFile, OfAHundredMegabytesIsLeftAlone) {
  constexpr std::uintmax_t kHuge = 100U << 20U;
  fs::resize_file(path_, kHuge);
  expectLeftAlone(path_);
}

TEST_F(NamedStatusFile, OneByteAboveMebibyteIsLeftUntouched) {
  constexpr std::size_t kLimit = 1U << 20U;
  const std::string rest(kLimit - kCompleted.size(), '\n');
  writeWholeFile(path_, kCompleted + rest + "\n");
  expectLeftAlone(path_);
  writeWholeFile(path_, kCompleted + rest);
  EXPECT_EQ(status(1, path_), (Dictionary{{"status", kCompletedStatus}}));
}

TEST_F(NamedStatusFile, ThatIsNoPropertyListIsLeftAlone) {
  for (const std::string& text :
       {std::string(), std::string("completed"), std::string("{\"status\":\"completed\"}"),
        std::string("<plist version=\"1.0\"><array/></plist>"),
        kCompleted.substr(0, kCompleted.size() / 2), std::string(4096, '\0')}) {
    writeWholeFile(path_, text);
    expectLeftAlone(path_);
  }
}

TEST_F(NamedStatusFile, AsFolderFifoOrDeviceIsLeftUntouched) {
  expectLeftAlone(folder_.path());
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  expectLeftAlone(folder_.path("fifo"));
  expectLeftAlone("/dev/null");
  expectLeftAlone("/dev/zero");
}

TEST_F(NamedStatusFile, WithAnotherDictionaryIsHandedOutAndStays) {
  const std::string other = ScriptedPropagation::status(ScriptedPropagation::text("key", "value"));
  writeWholeFile(path_, other);
  start();
  const Dictionary before = keptContext();
  EXPECT_EQ(status(1, path_), (Dictionary{{"status", Dictionary{{"key", "value"}}}}));
  EXPECT_EQ(readWholeFile(path_), other);
  EXPECT_EQ(keptContext(), before);
}

}  // namespace
}  // namespace paddock::testing
