// The program itself, on trees that take a while: ended early, followed, and of any shape.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <thread>

#include "base/file_access.h"
#include "support/copyprivs_tree.h"
#include "support/killed_program.h"
#include "support/loop_volume.h"
#include "support/own_mounts.h"

namespace paddock::copyprivs {
namespace {

using nt_acl::kContainerInherit;
using nt_acl::kObjectInherit;
using ::testing::HasSubstr;

constexpr std::uint8_t kBoth = kObjectInherit | kContainerInherit;
constexpr std::uint32_t kAnna = 21001;
constexpr std::uint32_t kBert = 21002;
constexpr int kFiles = 10'000;
constexpr int kInFolder = 1'000;

// A folder on a volume of its own, where creating many files is fast.
class Following {
 public:
  Following() {
    tree_.own("", 0770, kAnna, kBert);
    tree_.setList("", {aceOf(kAnna, kBoth, 1)});
  }
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;
  ~Following() = default;

  const TestTree& tree() const { return tree_; }
  pid_t process() const { return run_->process(); }
  // On the same volume, outside the starting folder.
  std::string outside(const std::string& name) const { return volume_.path(name); }

  void makeFiles(int count, const std::string& folder) {
    tree_.makeFolder(folder);
    const FileDescriptor above(
        ::open(tree_.path(folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int file = 0; file < count; ++file) {
      const FileDescriptor made(::openat(above.get(), std::to_string(file).c_str(),
                                         O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      ASSERT_TRUE(made);
    }
  }
  void makeManyFiles() {
    for (int folder = 0; folder < kFiles / kInFolder; ++folder) {
      makeFiles(kInFolder, "many" + std::to_string(folder));
    }
  }

  void start(const std::string& mask = "63") {
    run_.emplace(tree_.program(), tree_.wordsFor(mask));
  }
  // Until the file is there, or the program has ended.
  void awaitStatusFile() {
    while (!std::filesystem::exists(tree_.statusFile()) && isRunning()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  bool isRunning() const { return run_->isRunning(); }
  int end(int signal) { return run_->end(signal); }
  std::int64_t notYetSet() const { return notYetSet(tree_.path()); }
  static std::int64_t notYetSet(const std::string& folder) {
    std::int64_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
      const struct stat status = lstatOf(entry.path());
      const bool isSet = status.st_uid == kAnna && status.st_gid == kBert &&
                         attributeOf(entry.path(), kListAttribute).has_value();
      if (!isSet) ++count;
    }
    return count;
  }

 private:
  const LoopVolume volume_{"256M"};
  const TestTree tree_{volume_.path()};
  std::optional<RunningProgram> run_;
};

class ProgramEnding : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = whyNoLoopVolumes();
    if (!why.empty()) GTEST_SKIP() << why;
  }
};

TEST_F(ProgramEnding, TerminatedRunReportsStopAndNextRunFinishes) {
  runInOwnMounts([] {
    Following run;
    run.makeManyFiles();
    run.start();
    run.awaitStatusFile();
    EXPECT_EQ(run.end(SIGTERM), 0);
    const Dictionary status = run.tree().status();
    EXPECT_EQ(*status.string("status"), "completed");
    EXPECT_EQ(status.boolean("stopped"), true);
    EXPECT_LT(*status.integer("itemsDone"), kFiles + kFiles / kInFolder);
    EXPECT_GT(run.notYetSet(), 0);
    EXPECT_EQ(run.tree().run("63").status, 0);
    EXPECT_FALSE(run.tree().status().find("stopped"));
    EXPECT_EQ(run.tree().status().integer("itemsDone"), kFiles + kFiles / kInFolder);
    EXPECT_EQ(run.notYetSet(), 0);
  });
}

TEST_F(ProgramEnding, KilledRunIsFinishedByNextRun) {
  runInOwnMounts([] {
    Following run;
    run.makeManyFiles();
    std::int64_t left = run.notYetSet();
    for (int milliseconds : {20, 50, 100, 150}) {
      run.start();
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
      run.end(SIGKILL);
      const std::int64_t now = run.notYetSet();
      EXPECT_LE(now, left);
      left = now;
    }
    EXPECT_EQ(run.tree().run("63").status, 0);
    EXPECT_EQ(run.notYetSet(), 0);
    EXPECT_EQ(run.tree().run("63").status, 0);
    EXPECT_EQ(run.tree().status().integer("itemsChanged"), 0);
  });
}

TEST_F(ProgramEnding, StatusFileStaysWholeAndWritesAreLimited) {
  runInOwnMounts([] {
    Following run;
    run.makeManyFiles();
    writeWholeFile(run.tree().statusFile(), "");
    std::set<ino_t> inodes;
    const auto began = std::chrono::steady_clock::now();
    run.start();
    while (run.isRunning()) {
      const std::string text = readWholeFile(run.tree().statusFile());
      if (text.empty()) continue;
      std::string error;
      ASSERT_TRUE(wire::parsePropertyList(text, error)) << error;
      inodes.insert(lstatOf(run.tree().statusFile()).st_ino);
    }
    EXPECT_EQ(run.end(0), 0);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    EXPECT_LE(static_cast<double>(inodes.size()), 4 + 4 * took.count());
  });
}

TEST_F(ProgramEnding, RemovedStatusFileIsNotRecreated) {
  runInOwnMounts([] {
    Following run;
    run.makeManyFiles();
    run.start();
    run.awaitStatusFile();
    std::filesystem::remove(run.tree().statusFile());
    EXPECT_EQ(run.end(0), 0);
    EXPECT_FALSE(std::filesystem::exists(run.tree().statusFile()));
    EXPECT_EQ(run.notYetSet(), 0);
  });
}

TEST_F(ProgramEnding, TheFolderMayBeRemovedMeanwhile) {
  runInOwnMounts([] {
    Following run;
    run.makeManyFiles();
    run.start();
    run.awaitStatusFile();
    std::filesystem::remove_all(run.tree().path());
    EXPECT_THAT((std::vector<int>{0, 1}), ::testing::Contains(run.end(0)));
    EXPECT_EQ(*run.tree().status().string("status"), "completed");
    EXPECT_EQ(run.tree().status().integer("itemsDone"), run.tree().status().integer("itemsTotal"));
  });
}

// Moves a folder of many entries out while the program is in it; how many of them were not set
// then, and how many at its end.
std::pair<std::int64_t, std::int64_t> moveAway(Following& run) {
  constexpr int kEntries = 30'000;
  const std::string folder = run.tree().path("wide");
  run.makeFiles(kEntries, "wide");
  run.start();
  // It is open before it is set.
  while (lstatOf(folder).st_uid != kAnna && run.isRunning()) std::this_thread::yield();
  ::kill(run.process(), SIGSTOP);
  std::filesystem::rename(folder, run.outside("away"));
  const std::int64_t left = Following::notYetSet(run.outside("away"));
  ::kill(run.process(), SIGCONT);
  run.end(0);
  return {left, Following::notYetSet(run.outside("away"))};
}

TEST_F(ProgramEnding, MovedFolderIsNoLongerChanged) {
  runInOwnMounts([] {
    // Objects in progress on the threads: entries of a folder are read in batches.
    constexpr std::int64_t kInHand = 5'000;
    for (int attempt = 0; attempt < 10; ++attempt) {
      Following run;
      const auto [left, leftAtEnd] = moveAway(run);
      // It was nearly done when it was stopped.
      if (left <= kInHand) continue;
      EXPECT_GE(leftAtEnd, left - kInHand);
      const Dictionary status = run.tree().status();
      ASSERT_EQ(status.integer("errorCount"), 1);
      const Dictionary& error = *status.array("errors")->front().dictionary();
      EXPECT_EQ(*error.string("path"), run.tree().path("wide"));
      EXPECT_THAT(*error.string("error"), HasSubstr("moved away"));
      return;
    }
    FAIL() << "it was never stopped early enough";
  });
}

TEST_F(ProgramEnding, RunningTotalApproximatesObjectCount) {
  runInOwnMounts([] {
    Following run;
    run.makeManyFiles();
    run.start();
    std::vector<std::int64_t> totals;
    while (run.isRunning()) {
      const std::string text = readWholeFile(run.tree().statusFile());
      std::string error;
      const auto status = wire::parsePropertyList(text, error);
      if (!status || *status->dictionary()->string("status") != "running") continue;
      if (*status->dictionary()->integer("itemsDone") < kFiles / 10) continue;
      totals.push_back(*status->dictionary()->integer("itemsTotal"));
    }
    EXPECT_EQ(run.end(0), 0);
    const std::int64_t all = *run.tree().status().integer("itemsTotal");
    EXPECT_EQ(all, kFiles + kFiles / kInFolder);
    for (const std::int64_t total : totals) {
      EXPECT_GT(total, all / 2);
      EXPECT_LT(total, 2 * all);
    }
  });
}

// The peak memory, in KiB, and number of descriptors observed during the run.
struct Peak {
  long memory = 0;
  long descriptors = 0;
};

Peak peakOf(pid_t process, const std::function<bool()>& isRunning) {
  Peak peak;
  const std::string folder = "/proc/" + std::to_string(process);
  while (isRunning()) {
    std::ifstream status(folder + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmHWM:"))
        peak.memory = std::max(peak.memory, std::stol(line.substr(6)));
    }
    std::error_code ignored;
    long open = 0;
    for (auto at = std::filesystem::directory_iterator(folder + "/fd", ignored);
         at != std::filesystem::directory_iterator(); at.increment(ignored)) {
      ++open;
    }
    peak.descriptors = std::max(peak.descriptors, open);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return peak;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Including the shadow memory of a sanitizer.
constexpr long kMostMemory = 8 * (64L << 10U);
#else
constexpr long kMostMemory = 64L << 10U;
#endif
constexpr long kMostDescriptors = 64;

TEST_F(ProgramEnding, DeepTreeTakesLittleMemoryAndFewDescriptors) {
  runInOwnMounts([] {
    Following run;
    constexpr int kLevels = 10'000;
    FileDescriptor folder(::open(run.tree().path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int level = 0; level < kLevels; ++level) {
      ASSERT_EQ(::mkdirat(folder.get(), "d", 0700), 0);
      const FileDescriptor file(
          ::openat(folder.get(), "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      folder = FileDescriptor(::openat(folder.get(), "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      ASSERT_TRUE(folder);
    }
    run.start();
    const Peak peak = peakOf(run.process(), [&] { return run.isRunning(); });
    EXPECT_EQ(run.end(0), 0);
    EXPECT_EQ(run.tree().status().integer("itemsChanged"), 2 * kLevels);
    EXPECT_LT(peak.memory, kMostMemory);
    EXPECT_LT(peak.descriptors, kMostDescriptors);
  });
}

TEST_F(ProgramEnding, LargeFolderTakesLittleMemoryAndFewDescriptors) {
  runInOwnMounts([] {
    Following run;
    constexpr int kEntries = 30'000;
    run.makeFiles(kEntries, "wide");
    run.start();
    const Peak peak = peakOf(run.process(), [&] { return run.isRunning(); });
    EXPECT_EQ(run.end(0), 0);
    EXPECT_EQ(run.tree().status().integer("itemsChanged"), kEntries + 1);
    EXPECT_LT(peak.memory, kMostMemory);
    EXPECT_LT(peak.descriptors, kMostDescriptors);
  });
}

}  // namespace
}  // namespace paddock::copyprivs
