// `keelhouse index` and `keelhouse quota`, by way of the running daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/keelhouse_fixture.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;

class KeelhouseIndex : public KeelhouseFixture {
 protected:
  std::string done(std::vector<std::string> words) const {
    const EndedProgram ended = keelhouse(std::move(words));
    EXPECT_EQ(ended.status, 0) << ended.error;
    return ended.output;
  }
};

TEST_F(KeelhouseIndex, IsSwitchedOnAndOffForASharedFolder) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder});
  EXPECT_EQ(done({"index", "status", folder}), folder + " is not indexed.\n");
  EXPECT_EQ(done({"index", "on", folder}), folder + " is indexed for search.\n");
  EXPECT_EQ(done({"index", "status", folder}), folder + " is indexed for search.\n");
  EXPECT_THAT(done({"share", "show", folder}), HasSubstr("isIndexingEnabled: yes\n"));
  EXPECT_EQ(done({"index", "off", folder}), folder + " is not indexed.\n");
  EXPECT_EQ(done({"index", "off", folder}), folder + " is not indexed.\n");
  EXPECT_EQ(done({"index", "status", folder}), folder + " is not indexed.\n");
}

TEST_F(KeelhouseIndex, ChangesNothingElseOfTheShare) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder, "--smb-name", "x", "--no-ftp", "--nfs", "*(ro)"});
  const std::string before = done({"share", "show", folder});
  done({"index", "on", folder});
  done({"index", "off", folder});
  EXPECT_EQ(done({"share", "show", folder}), before);
}

TEST_F(KeelhouseIndex, SurvivesTheDaemon) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder});
  done({"index", "on", folder});
  EXPECT_EQ(daemon_->stop(), 0);
  startDaemon();
  EXPECT_EQ(done({"index", "status", folder}), folder + " is indexed for search.\n");
}

TEST_F(KeelhouseIndex, IsNotForAFolderThatIsNotShared) {
  const std::string folder = makeFolder("a");
  for (const char* command : {"status", "on", "off"}) {
    const EndedProgram ended = keelhouse({"index", command, folder});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(folder + " is not shared\n"));
  }
}

}  // namespace
}  // namespace paddock::testing
