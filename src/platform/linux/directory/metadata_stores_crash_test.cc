// What happens to the metadata stores when the process that changes them is killed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <optional>

#include "base/file_access.h"
#include "base/system_call.h"
#include "platform/linux/directory/linux_metadata_stores.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr std::uint32_t kPaths = 7;

std::string pathOf(std::uint32_t number) { return "/srv/" + std::to_string(number % kPaths); }

// Sets two attributes with one number on one path after the other, and reports to `progress` the
// last one that was written completely.
int writeForever(const std::string& file, int progress) {
  LinuxMetadataStores stores({.path = file});
  for (std::uint32_t number = 1;; ++number) {
    const std::string text = std::to_string(number);
    const Dictionary attributes{{"first", text}, {"second", text}};
    const int error = number < kPaths + 1 ? stores.createStore(pathOf(number), attributes)
                                          : stores.setStoreAttributes(pathOf(number), attributes);
    if (error != 0) return 1;
    if (::write(progress, &number, sizeof number) != sizeof number) return 2;
  }
}

pid_t startWriter(const std::string& file, int progress) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(writeForever(file, progress));
  return child;
}

// Every store has both attributes, with one number; the largest of them.
std::uint32_t requireWhole(const std::string& file) {
  SqliteConnection check(file);
  EXPECT_EQ(check.queryInteger("SELECT count(*) FROM pragma_integrity_check "
                               "WHERE integrity_check <> 'ok'"),
            0);
  LinuxMetadataStores stores({.path = file});
  std::shared_ptr<const StorePaths> paths;
  EXPECT_EQ(stores.copyStorePaths(paths), 0);
  std::uint32_t largest = 0;
  for (const std::string& path : paths->all()) {
    Dictionary attributes;
    EXPECT_EQ(stores.copyStoreAttributes(path, attributes), 0);
    EXPECT_EQ(attributes.size(), 2U) << path;
    EXPECT_EQ(attributes.integer("first"), attributes.integer("second")) << path;
    const auto number = static_cast<std::uint32_t>(attributes.integer("first").value_or(0));
    EXPECT_EQ(pathOf(number), path);
    largest = std::max(largest, number);
  }
  return largest;
}

TEST(MetadataStoresCrash, AKilledWriterLeavesWholeStores) {
  const TestFolder folder;
  const std::string file = folder.path("metadata-stores.sqlite");
  constexpr int kRounds = 20;
  for (int round = 0; round < kRounds && !::testing::Test::HasFailure(); ++round) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t writer = startWriter(file, writing.get());
    ASSERT_GT(writer, 0);
    writing.reset();
    std::uint32_t last = 0;
    ASSERT_EQ(::read(reading.get(), &last, sizeof last), ssize_t{sizeof last});
    // A moment that differs from round to round.
    ::usleep(static_cast<useconds_t>(700 * round));
    ::kill(writer, SIGKILL);
    int status = 0;
    retryOnInterrupt([&] { return ::waitpid(writer, &status, 0); });
    EXPECT_TRUE(WIFSIGNALED(status));
    std::uint32_t written = 0;
    while (::read(reading.get(), &written, sizeof written) == sizeof written) last = written;
    const std::uint32_t largest = requireWhole(file);
    EXPECT_GE(largest, last) << "round " << round;
    EXPECT_LE(largest, last + 1) << "round " << round;
    std::filesystem::remove(file);
    std::filesystem::remove(file + "-journal");
  }
}

}  // namespace
}  // namespace paddock
