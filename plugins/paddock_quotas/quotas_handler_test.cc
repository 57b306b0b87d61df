#include "paddock_quotas/quotas_handler.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "platform/testing/fake_machine_information.h"
#include "platform/testing/fake_quotas.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/recording_host_services.h"
#include "support/plugin_host.h"
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

TEST_F(RefusedSwitch, RefusesSymlinkOfAnotherUser) {
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

TEST_F(RefusedSwitch, RefusedSwitchingOffRemovesNothing) {
  EXPECT_EQ(*switchTo(false).array("removed"), Array{});
  EXPECT_TRUE(exists(".quota.user"));
}

TEST_F(RefusedSwitch, ReportsMissingSharingModule) {
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

using ::testing::HasSubstr;

constexpr std::uint32_t kUsers = 0;
constexpr std::uint32_t kGroups = 1;

class QuotasHandler : public ::testing::Test {
 protected:
  QuotasHandler() {
    accounts_.addUser("anna", 1001);
    accounts_.addUser("77", 1077);
    accounts_.addGroup("staff", 50);
    volumes_.mount({"/vol", "/dev/sdz1", "ext4"});
    clock_.setNow(std::chrono::system_clock::from_time_t(5000));
  }
  Dictionary call(const char* operation, const Dictionary& request) {
    return handler_.performOperation(operation, request);
  }
  Dictionary usage() { return call("getUsage", {{"path", "/vol/folder"}}); }
  void expectRefused(const Dictionary& request, int status, const std::string& why) {
    const Dictionary reply = call("setLimits", request);
    EXPECT_EQ(reply.integer("status"), status);
    EXPECT_THAT(*reply.string("message"), HasSubstr(why));
    std::vector<QuotaRecord> records;
    EXPECT_EQ(records_.list("/vol", kUsers, records), 0);
    EXPECT_TRUE(records.empty());
  }

  FakeVolumeInfo volumes_;
  FakeQuotaControl control_{volumes_};
  FakeQuotaRecords records_{volumes_};
  InMemoryAccounts accounts_;
  FakeClock clock_;
  RecordingPluginCommands commands_;
  QuotasRequestHandler handler_{{&accounts_, &clock_, &control_, &records_}, commands_};
};

TEST_F(QuotasHandler, OnlyWhatReadsMayBeViewed) {
  for (const auto& operation : handler_.operations()) {
    EXPECT_EQ(operation.changes, operation.name != "getUsage") << operation.name;
  }
  EXPECT_THROW(call("getLimits", {}), std::invalid_argument);
}

TEST_F(QuotasHandler, UsageListsNamesLimitsAndGraceTimes) {
  records_.add("/vol", kUsers,
               {.id = 1001,
                .usedBytes = 9,
                .softBytes = 8,
                .hardBytes = 10,
                .bytesGraceEnd = 6000,
                .usedFiles = 2,
                .softFiles = 3,
                .hardFiles = 4,
                .filesGraceEnd = 7});
  records_.add("/vol", kGroups, {.id = 4711, .hardFiles = 1});
  control_.setOn("/vol");
  const Dictionary reply = usage();
  EXPECT_EQ(*reply.array("users"), (Array{Dictionary{{"id", 1001},
                                                     {"name", "anna"},
                                                     {"usedBytes", 9},
                                                     {"softBytes", 8},
                                                     {"hardBytes", 10},
                                                     {"bytesGraceEnd", 6000},
                                                     {"usedFiles", 2},
                                                     {"softFiles", 3},
                                                     {"hardFiles", 4},
                                                     {"filesGraceEnd", 7}}}));
  ASSERT_EQ(reply.array("groups")->size(), 1U);
  EXPECT_EQ(*(*reply.array("groups"))[0].dictionary()->string("name"), "4711");
  EXPECT_EQ(reply.boolean("usersEnforced"), true);
  EXPECT_EQ(reply.boolean("groupsEnforced"), false);
  EXPECT_EQ(reply.integer("time"), 5000);
  EXPECT_EQ(reply.integer("status"), 0);
}

TEST_F(QuotasHandler, RootAndIdsWithoutAnythingAreLeftOut) {
  records_.add("/vol", kUsers, {.id = 0, .usedBytes = 9});
  records_.add("/vol", kUsers, {.id = 5});
  const Dictionary reply = usage();
  EXPECT_EQ(*reply.array("users"), Array{});
  EXPECT_FALSE(reply.contains("groups"));
  EXPECT_FALSE(reply.contains("groupsEnforced"));
}

TEST_F(QuotasHandler, AVolumeWithoutQuotasIsNotSupported) {
  EXPECT_EQ(usage().integer("status"), ENOTSUP);
  EXPECT_EQ(
      call("setLimits", {{"path", "/vol"}, {"name", "anna"}, {"hardBytes", 1}}).integer("status"),
      ENOTSUP);
  EXPECT_EQ(call("getUsage", {}).integer("status"), EINVAL);
  records_.setError(EIO);
  EXPECT_EQ(usage().integer("status"), EIO);
}

TEST_F(QuotasHandler, LimitsAreSetByNameAndReadAgain) {
  records_.keep("/vol", kUsers);
  records_.keep("/vol", kGroups);
  Dictionary reply = call("setLimits", {{"path", "/vol"},
                                        {"name", "anna"},
                                        {"softBytes", 1000},
                                        {"hardBytes", 5000},
                                        {"hardFiles", 7}});
  EXPECT_EQ(reply.integer("status"), 0);
  const Dictionary& entry = *reply.dictionary("entry");
  EXPECT_EQ(*entry.string("name"), "anna");
  EXPECT_EQ(entry.integer("softBytes"), 1024);
  EXPECT_EQ(entry.integer("hardBytes"), 5120);
  EXPECT_EQ(entry.integer("softFiles"), 0);
  EXPECT_EQ(entry.integer("hardFiles"), 7);
  reply =
      call("setLimits", {{"path", "/vol"}, {"name", "staff"}, {"group", true}, {"softFiles", 2}});
  EXPECT_EQ(reply.dictionary("entry")->integer("id"), 50);
  reply = call("setLimits", {{"path", "/vol"}, {"name", "anna"}, {"softFiles", 2}});
  EXPECT_EQ(reply.dictionary("entry")->integer("hardBytes"), 5120);
}

TEST_F(QuotasHandler, NumberIsReadAsIdUnlessNameExists) {
  records_.keep("/vol", kUsers);
  for (const auto& [name, id] : {std::pair{"77", 1077}, std::pair{"78", 78}}) {
    const Dictionary reply =
        call("setLimits", {{"path", "/vol"}, {"name", name}, {"hardBytes", 1}});
    EXPECT_EQ(reply.dictionary("entry")->integer("id"), id);
  }
}

TEST_F(QuotasHandler, WhatCannotBeLimitedChangesNothing) {
  records_.keep("/vol", kUsers);
  const Dictionary anna{{"path", "/vol"}, {"name", "anna"}};
  const auto with = [&](const char* key, const Value& value) {
    Dictionary request = anna;
    request.set(key, value);
    return request;
  };
  expectRefused(anna, EINVAL, "no limit is given");
  expectRefused({{"name", "anna"}, {"hardBytes", 1}}, EINVAL, "\"path\"");
  expectRefused({{"path", "/vol"}, {"hardBytes", 1}}, EINVAL, "\"name\"");
  expectRefused(with("hardBytes", -1), EINVAL, "no number from 0 on");
  expectRefused(with("hardBytes", "1G"), EINVAL, "no number from 0 on");
  expectRefused({{"path", "/vol"}, {"name", "anna"}, {"softFiles", 3}, {"hardFiles", 2}}, EINVAL,
                "above the hard one");
  expectRefused({{"path", "/vol"}, {"name", "nobody here"}, {"hardBytes", 1}}, ENOENT,
                "the user nobody here");
  expectRefused({{"path", "/vol"}, {"name", "4294967295"}, {"hardBytes", 1}}, ENOENT, "4294967295");
  for (const char* root : {"root", "0"}) {
    expectRefused({{"path", "/vol"}, {"name", root}, {"hardBytes", 1}}, EINVAL, "hold for nobody");
  }
}

TEST(QuotasHandlerOfTheHost, CountsAloneWhereTheConfigurationSaysSo) {
  PluginHost host({{"volumes", Dictionary{{"quota_backend", "accounting"}}}});
  QuotasRequestHandler handler;
  const Dictionary reply = handler.performOperation("getUsage", {{"path", "/"}});
  EXPECT_EQ(reply.integer("status"), ENOTSUP);
  EXPECT_THAT(*reply.string("message"), HasSubstr("accounting"));
}

TEST(QuotasHandlerOfTheHost, AsksTheKernelOtherwise) {
  PluginHost host;
  QuotasRequestHandler handler;
  const Dictionary reply = handler.performOperation("getUsage", {{"path", "/proc"}});
  EXPECT_EQ(reply.integer("status"), ENOTSUP);
  EXPECT_EQ(*reply.string("message"), "the kernel keeps no quotas of /proc");
}

}  // namespace

}  // namespace paddock
