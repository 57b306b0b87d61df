#include "paddock_quotas/refused_switch.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "platform/testing/recording_plugin_commands.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

namespace fs = std::filesystem;

constexpr int kRefused = 100080;

class RefusedSwitch : public ::testing::Test {
 protected:
  RefusedSwitch() {
    siblings_.setPlugin("paddock_sharing", [this](const Dictionary&) {
      act_();
      return reply_;
    });
    act_ = [this] {
      for (const char* name : {".quota.ops.user", ".quota.user"}) {
        if (!fs::exists(fs::symlink_status(folder_.path(name)))) {
          writeWholeFile(folder_.path(name), "made");
        }
      }
    };
    refuse();
  }
  void refuse() {
    reply_ = {{"writeStatus", kRefused},
              {"writeError", "CANNOT_SET_QUOTA_STATE_ERR"},
              {"configuration", Dictionary{{"volumeQuotas", Dictionary{{"isEnabled", false}}}}}};
  }
  Dictionary switchTo(bool on) {
    return switchQuotas(siblings_, {{"path", folder_.path()}, {"isEnabled", on}});
  }
  bool exists(const char* name) const { return fs::exists(fs::symlink_status(folder_.path(name))); }

  TestFolder folder_;
  // What the sharing module does, and answers.
  std::function<void()> act_;
  Dictionary reply_;
  RecordingPluginCommands siblings_;
};

TEST_F(RefusedSwitch, NothingIsSwitchedThroughALinkOfSomebodyElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving links to other users needs root";
  const TestFolder other;
  const std::string link = other.path("link");
  fs::create_directory_symlink(folder_.path(), link);
  ASSERT_EQ(::lchown(link.c_str(), 1, 1), 0);
  const Dictionary reply = switchQuotas(siblings_, {{"path", link}, {"isEnabled", true}});
  EXPECT_EQ(reply.integer("status"), EACCES);
  EXPECT_TRUE(reply.string("message")->find("is a symbolic link of daemon") != std::string::npos);
  EXPECT_TRUE(siblings_.sent().empty());
}

TEST_F(RefusedSwitch, LeavesNothingOfWhatItMade) {
  const Dictionary reply = switchTo(true);
  EXPECT_EQ(reply, (Dictionary{{"status", kRefused},
                               {"error", "CANNOT_SET_QUOTA_STATE_ERR"},
                               {"volumeQuotas", Dictionary{{"isEnabled", false}}},
                               {"removed", Array{".quota.ops.user", ".quota.user"}}}));
  EXPECT_TRUE(fs::is_empty(folder_.path()));
  ASSERT_EQ(siblings_.sent().size(), 1U);
  EXPECT_EQ(siblings_.sent()[0].command,
            (Dictionary{
                {"command", "writeSettings"},
                {"optionalArguments", Dictionary{{"path", folder_.path()}}},
                {"configuration", Dictionary{{"volumeQuotas", Dictionary{{"isEnabled", true}}}}}}));
}

TEST_F(RefusedSwitch, KeepsWhatWasThereBefore) {
  writeWholeFile(folder_.path(".quota.user"), "mine");
  EXPECT_EQ(*switchTo(true).array("removed"), Array{".quota.ops.user"});
  EXPECT_EQ(readWholeFile(folder_.path(".quota.user")), "mine");
  EXPECT_FALSE(exists(".quota.ops.user"));
}

TEST_F(RefusedSwitch, KeepsLinksFoldersAndFilesOfOthers) {
  const auto make = act_;
  act_ = [&] {
    fs::create_symlink(folder_.path("elsewhere"), folder_.path(".quota.user"));
    fs::create_directory(folder_.path(".quota.ops.user"));
    writeWholeFile(folder_.path("elsewhere"), "theirs");
  };
  EXPECT_EQ(*switchTo(true).array("removed"), Array{});
  EXPECT_TRUE(exists(".quota.user"));
  EXPECT_TRUE(exists("elsewhere"));
  EXPECT_TRUE(exists(".quota.ops.user"));
  if (::geteuid() != 0) GTEST_SKIP() << "only root makes files of other users";
  fs::remove(folder_.path(".quota.user"));
  fs::remove(folder_.path(".quota.ops.user"));
  act_ = [&] {
    make();
    ASSERT_EQ(::chown(folder_.path(".quota.user").c_str(), 12345, 0), 0);
  };
  EXPECT_EQ(*switchTo(true).array("removed"), Array{".quota.ops.user"});
  EXPECT_TRUE(exists(".quota.user"));
}

TEST_F(RefusedSwitch, ASwitchThatSucceedsKeepsItsFiles) {
  reply_ = {{"writeStatus", 0},
            {"configuration", Dictionary{{"volumeQuotas", Dictionary{{"isEnabled", true}}}}}};
  EXPECT_EQ(switchTo(true), (Dictionary{{"status", 0},
                                        {"volumeQuotas", Dictionary{{"isEnabled", true}}},
                                        {"removed", Array{}}}));
  EXPECT_TRUE(exists(".quota.user"));
}

TEST_F(RefusedSwitch, SwitchingOffRemovesNothingEvenWhenItIsRefused) {
  EXPECT_EQ(*switchTo(false).array("removed"), Array{});
  EXPECT_TRUE(exists(".quota.user"));
}

TEST_F(RefusedSwitch, ASharingModuleThatIsNotThereIsSaid) {
  act_ = [] {};
  reply_ = {{"error", "there is no plug-in \"paddock_sharing\""}};
  const Dictionary reply = switchTo(true);
  EXPECT_EQ(reply.integer("status"), EIO);
  EXPECT_EQ(*reply.string("message"), "there is no plug-in \"paddock_sharing\"");
}

TEST_F(RefusedSwitch, AnInvalidRequestOrPathAsksNobody) {
  for (const Dictionary& request :
       {Dictionary{}, Dictionary{{"path", folder_.path()}}, Dictionary{{"isEnabled", true}},
        Dictionary{{"path", "relative"}, {"isEnabled", true}},
        Dictionary{{"path", std::string("/a\0b", 4)}, {"isEnabled", true}}}) {
    EXPECT_EQ(switchQuotas(siblings_, request).integer("status"), EINVAL);
  }
  EXPECT_EQ(switchQuotas(siblings_, {{"path", folder_.path("none")}, {"isEnabled", true}})
                .integer("status"),
            ENOENT);
  EXPECT_TRUE(siblings_.sent().empty());
}

}  // namespace
}  // namespace paddock
