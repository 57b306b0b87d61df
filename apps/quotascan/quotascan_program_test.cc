// The program itself, on volumes of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "base/file_access.h"
#include "quotascan/quota_file.h"
#include "support/killed_program.h"
#include "support/loop_volume.h"
#include "support/own_mounts.h"
#include "support/restless_folder.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"

namespace paddock::quotascan {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr std::uint32_t kAnna = 21001;
constexpr std::uint32_t kBert = 21002;
constexpr std::uint32_t kSlots = 2048;

QuotaEntry limitOf(std::uint32_t id, std::uint64_t hardBytes) {
  QuotaEntry entry;
  entry.id = id;
  entry.hardBytes = hardBytes;
  return entry;
}

std::string emptyTable(QuotaType type, std::uint32_t slots = kSlots) {
  QuotaFileHeader header;
  header.magic = quotamagic[static_cast<std::size_t>(type)];
  header.maxentries = slots;
  const QuotaSlot slot = encodeQuotaHeader(header);
  std::string bytes(slot.begin(), slot.end());
  bytes.resize(quotaFileSize(slots));
  return bytes;
}

// A table of one entry, in a slot where no search finds it.
std::string tableWith(const QuotaEntry& entry) {
  std::string bytes = emptyTable(kUserQuota);
  const QuotaSlot slot = encodeQuotaEntry(entry);
  bytes.replace(quotaSlotOffset(0), slot.size(), std::string(slot.begin(), slot.end()));
  return bytes;
}

// What a search for the id ends at in the bytes of a file.
QuotaEntry entryIn(const std::string& bytes, std::uint32_t id, std::uint32_t slots = kSlots) {
  for (QuotaProbe probe(id, slots); !probe.atEnd(); probe.next()) {
    QuotaSlot slot{};
    bytes.copy(reinterpret_cast<char*>(slot.data()), slot.size(), quotaSlotOffset(probe.slot()));
    const QuotaEntry entry = decodeQuotaEntry(slot);
    if (entry.id == id || entry.id == 0) return entry;
  }
  return {};
}

void makeFile(const std::string& path, std::size_t size, std::uint32_t owner,
              std::uint32_t group = 0) {
  writeWholeFile(path, std::string(size, 'x'));
  ASSERT_EQ(::chown(path.c_str(), owner, group), 0);
}

EndedProgram quotascan(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {QUOTASCAN_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return runProgram(words);
}

// Success without output on standard error.
void expectDone(const EndedProgram& ended) {
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.error, "");
}

class Program : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoLoopVolumes(); !why.empty()) GTEST_SKIP() << why;
  }
};

TEST_F(Program, BringsTheFileOfUsersUpToDate) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), tableWith(limitOf(kAnna, 1U << 30U)));
    makeFile(volume.path("a"), 40'000, kAnna);
    makeFile(volume.path("b"), 10'000, kBert);
    const EndedProgram ended = quotascan({"-u", volume.path()});
    expectDone(ended);
    // Root's: the highest folder and lost+found.
    EXPECT_EQ(ended.output, volume.path() + ": 2 users brought up to date, 4 objects counted\n");
    const std::string bytes = readWholeFile(volume.path(".quota.user"));
    EXPECT_EQ(bytes.size(), quotaFileSize(kSlots));
    EXPECT_EQ(bytes.substr(0, kQuotaSlotSize), emptyTable(kUserQuota).substr(0, kQuotaSlotSize));
    const QuotaEntry anna = entryIn(bytes, kAnna);
    EXPECT_EQ(anna.hardBytes, 1U << 30U);
    EXPECT_GE(anna.usedBytes, 40'000U);
    EXPECT_LT(anna.usedBytes, 50'000U);
    EXPECT_EQ(anna.usedFiles, 1U);
    EXPECT_EQ(entryIn(bytes, kBert).usedFiles, 1U);
    EXPECT_FALSE(std::filesystem::exists(volume.path(".quota.group")));
  });
}

TEST_F(Program, UpdatesExistingGroupFile) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    writeWholeFile(volume.path(".quota.group"), emptyTable(kGroupQuota));
    makeFile(volume.path("a"), 10'000, kAnna, kBert);
    const EndedProgram ended = quotascan({"--json", "-u", volume.path()});
    expectDone(ended);
    EXPECT_EQ(ended.output,
              R"({"users": {"entries": 1, "slots": 2048, "grown": false, "countedBy": "walk"}, )"
              R"("groups": {"entries": 1, "slots": 2048, "grown": false, "countedBy": "walk"}, )"
              R"("objects": 3})"
              "\n");
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.group")), kBert).usedFiles, 1U);
  });
}

TEST_F(Program, DoesWithTheFileOfGroupsAlone) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.group"), emptyTable(kGroupQuota));
    EXPECT_EQ(quotascan({"-u", volume.path()}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(volume.path(".quota.user")));
  });
}

TEST_F(Program, LeavesAFileAloneInWhichNothingChanges) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    makeFile(volume.path("a"), 10'000, kAnna);
    struct stat first {};
    struct stat second {};
    expectDone(quotascan({"-u", volume.path()}));
    ASSERT_EQ(::stat(volume.path(".quota.user").c_str(), &first), 0);
    expectDone(quotascan({"-u", volume.path()}));
    ASSERT_EQ(::stat(volume.path(".quota.user").c_str(), &second), 0);
    EXPECT_EQ(first.st_ino, second.st_ino);
    EXPECT_EQ(first.st_mtim.tv_nsec, second.st_mtim.tv_nsec);
  });
}

TEST_F(Program, SaysNothingWhenTheModuleStartsIt) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    makeFile(volume.path("a"), 10'000, kAnna);
    const EndedProgram ended = runProgramAs(QUOTASCAN_PROGRAM, {"-u", volume.path()});
    expectDone(ended);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.user")), kAnna).usedFiles, 1U);
  });
}

TEST_F(Program, DoesNotCountTheQuotaFilesThemselves) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    writeWholeFile(volume.path(".quota.group"), emptyTable(kGroupQuota));
    for (const char* name : {".quota.user", ".quota.group"}) {
      ASSERT_EQ(::chown(volume.path(name).c_str(), 0, kAnna), 0);
    }
    expectDone(quotascan({"-u", volume.path()}));
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.group")), kAnna), QuotaEntry());
  });
}

TEST_F(Program, BrokenQuotaFileDoesNotStopOther) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    writeWholeFile(volume.path(".quota.group"), "junk");
    makeFile(volume.path("a"), 10'000, kAnna);
    const EndedProgram ended = quotascan({"-u", volume.path()});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, StartsWith("quotascan: " + volume.path(".quota.group") + " has 4"));
    EXPECT_THAT(ended.output, HasSubstr("1 user brought up to date"));
    EXPECT_EQ(readWholeFile(volume.path(".quota.group")), "junk");
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.user")), kAnna).usedFiles, 1U);
  });
}

TEST_F(Program, MissingQuotaFilePrintsAdvice) {
  runInOwnMounts([] {
    const LoopVolume volume;
    const EndedProgram ended = quotascan({"-u", volume.path()});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error, "quotascan: " + volume.path() +
                               " has no .quota.user, so there is nothing to bring up to date; "
                               "\"keelhouse quota on " +
                               volume.path() + "\" makes one\n");
    EXPECT_FALSE(std::filesystem::exists(volume.path(".quota.user")));
  });
}

TEST_F(Program, AFolderThatIsNoVolumeIsRefused) {
  runInOwnMounts([] {
    const LoopVolume volume;
    std::filesystem::create_directory(volume.path("d"));
    writeWholeFile(volume.path("d/.quota.user"), emptyTable(kUserQuota));
    const EndedProgram ended = quotascan({"-u", volume.path("d")});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(volume.path("d") + " is not where a volume is mounted"));
    EXPECT_EQ(readWholeFile(volume.path("d/.quota.user")), emptyTable(kUserQuota));
  });
}

TEST_F(Program, ReadOnlyVolumeFailsBeforeCounting) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    ASSERT_EQ(::mount("", volume.path().c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
    const EndedProgram ended = quotascan({"-u", volume.path()});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error,
              "quotascan: cannot open " + volume.path(".quota.user") + ": Read-only file system\n");
  });
}

// Writes to a file until its volume is full.
void fill(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  for (std::string block(64U << 10U, 'x'); !block.empty();) {
    if (::write(file.get(), block.data(), block.size()) < 0) block.resize(block.size() / 2);
  }
}

TEST_F(Program, FullDiskKeepsOnlyOldFile) {
  runInOwnMounts([] {
    const LoopVolume volume("4M");
    const std::string old = tableWith(limitOf(kAnna, 77));
    writeWholeFile(volume.path(".quota.user"), old);
    for (std::uint32_t id = 1; id < 200; ++id) {
      makeFile(volume.path("f" + std::to_string(id)), 0, kAnna + id);
    }
    fill(volume.path("filler"));
    const EndedProgram ended = quotascan({"-u", volume.path()});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.error, "quotascan: cannot write " + volume.path(".quota.user.quotascan") +
                               ": No space left on device; the file that was there stays\n");
    EXPECT_EQ(ended.output, "");
    EXPECT_TRUE(readWholeFile(volume.path(".quota.user")) == old);
    EXPECT_FALSE(std::filesystem::exists(volume.path(".quota.user.quotascan")));
  });
}

TEST_F(Program, ATableThatIsNearlyFullGrows) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota, 16));
    for (std::uint32_t number = 0; number < 15; ++number) {
      makeFile(volume.path("f" + std::to_string(number)), 0, kAnna + number);
    }
    const EndedProgram ended = quotascan({"-u", volume.path()});
    expectDone(ended);
    EXPECT_THAT(ended.output, HasSubstr("15 users (table grown to 32 slots) brought up to date"));
    const std::string bytes = readWholeFile(volume.path(".quota.user"));
    EXPECT_EQ(bytes.size(), quotaFileSize(32));
    for (std::uint32_t number = 0; number < 15; ++number) {
      EXPECT_EQ(entryIn(bytes, kAnna + number, 32).usedFiles, 1U);
    }
  });
}

// Returns when a process waits for the lock on the file.
void awaitWaiter(int file) {
  struct stat status {};
  ASSERT_EQ(::fstat(file, &status), 0);
  const std::string inode = ":" + std::to_string(status.st_ino) + " ";
  for (;; std::this_thread::yield()) {
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
      if (line.find("->") != std::string::npos && line.find(inode) != std::string::npos) return;
    }
  }
}

TEST_F(Program, RunWaitsForAnotherOnSameVolume) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    FileDescriptor held(::open(volume.path(".quota.user").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
    std::thread run([&] { expectDone(quotascan({"-u", volume.path()})); });
    awaitWaiter(held.get());
    // Files created while it waits are counted.
    makeFile(volume.path("a"), 10'000, kAnna);
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.user")), kAnna), QuotaEntry());
    held.reset();
    run.join();
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.user")), kAnna).usedFiles, 1U);
  });
}

TEST_F(Program, KernelOnlyWithoutCountsSkipsWalkAndWrite) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");  // without the feature "quota"
    writeWholeFile(volume.path(".quota.user"), tableWith(limitOf(kAnna, 4096)));
    const std::string before = readWholeFile(volume.path(".quota.user"));
    makeFile(volume.path("file"), 8192, kAnna);
    const EndedProgram ended = quotascan({"--kernel", "-u", volume.path()});
    expectDone(ended);
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(readWholeFile(volume.path(".quota.user")), before);
  });
}

TEST_F(Program, KernelOnlyGivesUpWaitingForOtherRun) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    const FileDescriptor held(::open(volume.path(".quota.user").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
    const EndedProgram ended = quotascan({"--kernel", "-u", volume.path()});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr("is being brought up to date by another run"));
  });
}

TEST_F(Program, ManyRunsAtOnceLeaveOneRightFile) {
  runInOwnMounts([] {
    const LoopVolume volume;
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    makeFile(volume.path("a"), 10'000, kAnna);
    std::vector<std::thread> runs;
    for (int run = 0; run < 6; ++run) {
      runs.emplace_back([&] { expectDone(quotascan({"-u", volume.path()})); });
    }
    for (std::thread& run : runs) run.join();
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.user")), kAnna).usedFiles, 1U);
    EXPECT_FALSE(std::filesystem::exists(volume.path(".quota.user.quotascan")));
  });
}

TEST_F(Program, FoldersThatNeverRestAreSaidAndFiguresWritten) {
  const TestFolder volume;
  runInOwnMounts([&] {
    mountTmpfs(volume.path(), "64m");
    makeManyFolders(volume.path());
    writeWholeFile(volume.path(".quota.user"), emptyTable(kUserQuota));
    makeFile(volume.path("f"), 10'000, kBert);
    std::filesystem::create_directory(volume.path("moving"));
    EndedProgram ended;
    {
      const RestlessFolder restless(volume.path("moving"), volume.path("elsewhere"));
      ended = quotascan({"-u", volume.path()});
    }
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, AllOf(StartsWith("quotascan: " + volume.path()),
                                   HasSubstr("kept changing while the volume was counted")));
    EXPECT_EQ(entryIn(readWholeFile(volume.path(".quota.user")), kBert).usedFiles, 1U);
    expectDone(quotascan({"-u", volume.path()}));
  });
}

TEST_F(Program, KillLeavesOldOrNewFile) {
  runInOwnMounts([] {
    const LoopVolume volume;
    constexpr std::uint32_t kUsers = 1000;
    const std::string old = tableWith(limitOf(kAnna, 1U << 30U));
    writeWholeFile(volume.path(".quota.user"), old);
    for (std::uint32_t id = 0; id < kUsers; ++id) {
      makeFile(volume.path("f" + std::to_string(id)), 0, kAnna + id);
    }
    const auto whole = durationOf([&] { expectDone(quotascan({"-u", volume.path()})); });
    const std::string made = readWholeFile(volume.path(".quota.user"));
    EXPECT_NE(made, old);
    killAtRandomMoments(
        QUOTASCAN_PROGRAM, {"-u", volume.path()}, whole,
        [&] { writeWholeFile(volume.path(".quota.user"), old); },
        [&] {
          const std::string left = readWholeFile(volume.path(".quota.user"));
          EXPECT_TRUE(left == old || left == made);
        });
    // The leftovers of a killed run do not block the next one.
    expectDone(quotascan({"-u", volume.path()}));
    EXPECT_EQ(readWholeFile(volume.path(".quota.user")), made);
    EXPECT_FALSE(std::filesystem::exists(volume.path(".quota.user.quotascan")));
  });
}

TEST(ProgramWithoutVolume, SaysWhatCannotBeOpened) {
  const TestFolder folder;
  EndedProgram ended = quotascan({"-u", folder.path("missing")});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.error,
            "quotascan: cannot open " + folder.path("missing") + ": No such file or directory\n");
  writeWholeFile(folder.path("file\x1B"), "");
  ended = quotascan({"-u", folder.path("file\x1B")});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.error,
            "quotascan: cannot open " + folder.path("file\\x1B") + ": Not a directory\n");
}

TEST(ProgramWithoutVolume, UnusableCommandLineGivesExitStatusTwo) {
  const EndedProgram ended = quotascan({"/vol"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.error,
            "quotascan: \"/vol\" is no option\nusage: quotascan [--json] [--kernel] -u VOLUME\n");
  EXPECT_EQ(ended.output, "");
}

TEST(ProgramWithoutVolume, HelpAndVersionGoToStandardOutput) {
  EXPECT_THAT(quotascan({"--help"}).output, StartsWith("usage: quotascan"));
  EXPECT_THAT(quotascan({"--version"}).output, AllOf(StartsWith("quotascan "), EndsWith("\n")));
}

}  // namespace
}  // namespace paddock::quotascan
