#include "keelhouse/propagate/run_status_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "support/scripted_propagation.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using testing::ScriptedPropagation;

class RunStatusFileTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(folder_.path("tmp")); }

  std::string write(const std::string& name, const std::string& elements) const {
    const std::string path = folder_.path("tmp/CopyPrivsTemp." + name);
    writeWholeFile(path, ScriptedPropagation::status(elements));
    return path;
  }
  static std::string completed(const std::string& path, int done = 1) {
    return ScriptedPropagation::text("status", "completed") +
           ScriptedPropagation::text("path", path) + ScriptedPropagation::number("itemsDone", done);
  }

  TestFolder folder_;
};

TEST_F(RunStatusFileTest, aDictionaryIsRead) {
  EXPECT_EQ(readStatusFile(write("a", ScriptedPropagation::number("itemsDone", 5))),
            (Dictionary{{"itemsDone", 5}}));
}

TEST_F(RunStatusFileTest, whatHoldsNoneIsNothing) {
  const std::string path = folder_.path("file");
  for (const std::string& text :
       {std::string(), std::string("no list"), std::string("<plist><array></array></plist>"),
        ScriptedPropagation::status(
            ScriptedPropagation::text("path", std::string(1U << 20U, 'x')))}) {
    writeWholeFile(path, text);
    EXPECT_EQ(readStatusFile(path), std::nullopt) << text.substr(0, 80);
  }
  EXPECT_EQ(readStatusFile(folder_.path("missing")), std::nullopt);
  EXPECT_EQ(readStatusFile(folder_.path()), std::nullopt);
}

TEST_F(RunStatusFileTest, linksFifosAndFilesOfTwoNamesAreNotRead) {
  const std::string path = write("a", completed("/srv"));
  std::filesystem::create_symlink(path, folder_.path("link"));
  EXPECT_EQ(readStatusFile(folder_.path("link")), std::nullopt);
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(readStatusFile(folder_.path("fifo")), std::nullopt);
  std::filesystem::create_hard_link(path, folder_.path("other"));
  EXPECT_EQ(readStatusFile(path), std::nullopt);
}

TEST_F(RunStatusFileTest, anotherUsersFileIsNotRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file another user's";
  const std::string path = write("a", completed("/srv"));
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  EXPECT_EQ(readStatusFile(path), std::nullopt);
}

TEST_F(RunStatusFileTest, theLastRunThatHasEndedOnTheFolderIsFound) {
  const std::string older = write("older", completed("/srv", 1));
  const std::string newer = write("newer", completed("/srv", 2));
  const auto now = std::filesystem::last_write_time(newer);
  std::filesystem::last_write_time(older, now - std::chrono::hours(1));
  write("other", completed("/srv/b", 3));
  write("running",
        ScriptedPropagation::text("status", "running") + ScriptedPropagation::text("path", "/srv"));
  writeWholeFile(folder_.path("tmp/unrelated"), ScriptedPropagation::status(completed("/srv", 9)));
  const auto found = endedRun(folder_.path(), "/srv");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->statusFile, newer);
  EXPECT_EQ(found->status.integer("itemsDone"), 2);
  EXPECT_FALSE(endedRun(folder_.path(), "/srv/c"));
}

TEST_F(RunStatusFileTest, aTreeWithoutTheFolderHasNone) {
  EXPECT_FALSE(endedRun(folder_.path("missing"), "/srv"));
}

}  // namespace
}  // namespace paddock::keelhouse
