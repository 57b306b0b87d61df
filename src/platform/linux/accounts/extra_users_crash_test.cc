// What happens to the accounts of the host when the process or the disk fails their writer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>

#include "base/file_access.h"
#include "support/extra_users_world.h"
#include "support/own_mounts.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;

const std::string kOthers = "lisa:x:6001:6001::/home/lisa:/bin/sh\n";

class ExtraUsersCrash : public ::testing::Test {
 protected:
  // Adds and removes users; reports each that is added.
  [[noreturn]] void writeForever(int progress) {
    LinuxDirectoryService service(world_.directoryOptions());
    for (int number = 5000;; ++number) {
      const std::string id = std::to_string(number);
      ExtraUsersWorld::putUser(service, "user" + id, id);
      if (::write(progress, &number, sizeof number) != sizeof number) ::_exit(1);
      if (number % 3 == 0)
        service.openLocalNode()->findRecord("user" + id, schema::kUsers)->removeRecord();
    }
  }

  // A block of whole lines behind the lines of others.
  void requireWhole(const std::string& name, const std::string& others, std::size_t fields) {
    const std::string contents = world_.contents(name);
    const auto block = splitManagedBlock(contents);
    ASSERT_TRUE(block) << name << ": " << contents;
    EXPECT_EQ(block->before, others);
    EXPECT_EQ(block->after, "");
    std::istringstream lines(block->lines);
    for (std::string line; std::getline(lines, line);) {
      const auto colons = std::count(line.begin(), line.end(), ':');
      EXPECT_EQ(static_cast<std::size_t>(colons) + 1, fields) << name << ": " << line;
    }
  }

  ExtraUsersWorld world_;
};

TEST_F(ExtraUsersCrash, KilledWriterLeavesWholeFilesAndNextRecovers) {
  constexpr int kRounds = 25;
  std::filesystem::create_directory(world_.extraFolder());
  writeWholeFile(world_.path("passwd"), kOthers);
  for (int round = 0; round < kRounds; ++round) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) writeForever(writing.get());
    writing.reset();
    int number = 0;
    ASSERT_EQ(::read(reading.get(), &number, sizeof number), ssize_t{sizeof number});
    ::usleep(static_cast<useconds_t>(900 * round));
    ::kill(writer, SIGKILL);
    ASSERT_EQ(::waitpid(writer, nullptr, 0), writer);
    requireWhole("passwd", kOthers, 7);
    requireWhole("shadow", "", 9);

    LinuxDirectoryService service(world_.directoryOptions());
    service.refreshExtraUsers();
    std::string expected;
    const auto node = service.openLocalNode();
    for (const Value& answer : node->findRecordNames(kRecordsAll, {kAttributesAll}, schema::kUsers,
                                                     MatchType::caseInsensitiveExact)) {
      const Array* ids = answer.dictionary()->array(schema::kUniqueID);
      if (ids == nullptr) continue;  // killed between its creation and its attributes
      const std::string& id = *ids->front().string();
      expected += plainUserLine("user" + id, id);
    }
    EXPECT_EQ(world_.contents("passwd"), expected.empty() ? kOthers : kOthers + ownBlock(expected));
    for (const Value& answer : node->findRecordNames(kRecordsAll, {kAttributesAll}, schema::kUsers,
                                                     MatchType::caseInsensitiveExact))
      node->findRecord(*answer.dictionary()->array(schema::kRecordName)->front().string(),
                       schema::kUsers)
          ->removeRecord();
    EXPECT_EQ(world_.contents("passwd"), kOthers);
    if (HasFailure()) FAIL() << "round " << round;
  }
}

TEST_F(ExtraUsersCrash, FullDiskIsLoggedAndFilesStayUnchanged) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  std::filesystem::create_directory(world_.extraFolder());
  runInOwnMounts([&] {
    mountTmpfs(world_.extraFolder(), "64k");
    ASSERT_EQ(::chmod(world_.extraFolder().c_str(), 0755), 0);
    writeWholeFile(world_.path("passwd"), kOthers);
    LinuxDirectoryService service(world_.directoryOptions());
    ExtraUsersWorld::putUser(service, "anna", "5001");
    const std::string before = world_.contents("passwd");
    ASSERT_EQ(before, kOthers + ownBlock(plainUserLine("anna", "5001")));
    writeWholeFile(world_.path("ballast"), std::string(100'000, 'x'));

    ExtraUsersWorld::put(
        service, schema::kUsers, "bert",
        {{schema::kUniqueID, "5002"}, {schema::kRealName, std::string(9000, 'b')}});
    EXPECT_NE(service.openLocalNode()->findRecord("bert", schema::kUsers), nullptr);
    EXPECT_EQ(world_.contents("passwd"), before);
    ASSERT_FALSE(world_.logger.lines().empty());
    EXPECT_THAT(world_.logger.lines().back().text,
                HasSubstr("writing " + world_.extraFolder() + "/"));
    EXPECT_THAT(world_.logger.lines().back().text, HasSubstr("No space left on device"));
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(world_.extraFolder()))
      files += entry.path().filename().string().front() == '.' ? 1U : 0U;
    EXPECT_EQ(files, 0U) << "nothing is left of what was begun";

    std::filesystem::remove(world_.path("ballast"));
    world_.clock.advance(ExtraUsers::kRetry);
    service.refreshExtraUsers();
    EXPECT_THAT(world_.contents("passwd"), HasSubstr("bert:x:5002:"));
  });
}

}  // namespace
}  // namespace paddock
