#include "synchronize-shares/run_lock.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <optional>
#include <system_error>

#include "support/temporary_folder.h"

namespace paddock::synchronizer {
namespace {

using namespace std::chrono_literals;

class RunLockTest : public ::testing::Test {
 protected:
  std::string folder() const { return folder_.path("run/paddock"); }
  std::string file() const { return folder() + "/synchronize-shares.lock"; }

  int errorOf(std::chrono::milliseconds patience) const {
    try {
      const RunLock lock(folder(), patience);
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  TestFolder folder_;
};

TEST_F(RunLockTest, MakesAFileThatNobodyElseCanOpen) {
  const RunLock lock(folder());
  EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms(0600));
}

TEST_F(RunLockTest, IsFreeAgainAtItsEnd) {
  { const RunLock lock(folder()); }
  EXPECT_EQ(errorOf(0ms), 0);
}

TEST_F(RunLockTest, ASecondWaitsUntilTheFirstEnds) {
  std::optional<RunLock> first(std::in_place, folder());
  auto second = std::async(std::launch::async, [this] { return errorOf(60s); });
  EXPECT_EQ(second.wait_for(100ms), std::future_status::timeout);
  first.reset();
  EXPECT_EQ(second.get(), 0);
}

TEST_F(RunLockTest, ASecondGivesUpAfterItsPatience) {
  const RunLock first(folder());
  EXPECT_EQ(errorOf(50ms), ETIMEDOUT);
}

TEST_F(RunLockTest, ALinkAtItsPlaceIsNotFollowed) {
  { const RunLock lock(folder()); }
  std::filesystem::remove(file());
  std::filesystem::create_symlink(folder_.path("elsewhere"), file());
  EXPECT_EQ(errorOf(0ms), ELOOP);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("elsewhere")));
}

TEST_F(RunLockTest, AFolderThatOthersMayWriteToIsRefused) {
  std::filesystem::create_directories(folder());
  std::filesystem::permissions(folder(), std::filesystem::perms(0777));
  EXPECT_NE(errorOf(0ms), 0);
}

}  // namespace
}  // namespace paddock::synchronizer
