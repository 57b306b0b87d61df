#include "paddock_quotas/quotas_handler.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>

#include "platform/testing/fake_clock.h"
#include "platform/testing/fake_quota_control.h"
#include "platform/testing/fake_quota_records.h"
#include "platform/testing/fake_volume_info.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/recording_plugin_commands.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;

constexpr std::uint32_t kUsers = 0;
constexpr std::uint32_t kGroups = 1;

class QuotasHandlerTest : public ::testing::Test {
 protected:
  QuotasHandlerTest() {
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

TEST_F(QuotasHandlerTest, OnlyWhatReadsMayBeViewed) {
  for (const auto& operation : handler_.operations()) {
    EXPECT_EQ(operation.changes, operation.name != "getUsage") << operation.name;
  }
  EXPECT_THROW(call("getLimits", {}), std::invalid_argument);
}

TEST_F(QuotasHandlerTest, UsageHasNamesLimitsAndGraceOfUsersAndGroups) {
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

TEST_F(QuotasHandlerTest, RootAndIdsWithoutAnythingAreLeftOut) {
  records_.add("/vol", kUsers, {.id = 0, .usedBytes = 9});
  records_.add("/vol", kUsers, {.id = 5});
  const Dictionary reply = usage();
  EXPECT_EQ(*reply.array("users"), Array{});
  EXPECT_FALSE(reply.contains("groups"));
  EXPECT_FALSE(reply.contains("groupsEnforced"));
}

TEST_F(QuotasHandlerTest, AVolumeWithoutQuotasIsNotSupported) {
  EXPECT_EQ(usage().integer("status"), ENOTSUP);
  EXPECT_EQ(
      call("setLimits", {{"path", "/vol"}, {"name", "anna"}, {"hardBytes", 1}}).integer("status"),
      ENOTSUP);
  EXPECT_EQ(call("getUsage", {}).integer("status"), EINVAL);
  records_.setError(EIO);
  EXPECT_EQ(usage().integer("status"), EIO);
}

TEST_F(QuotasHandlerTest, LimitsAreSetByNameAndReadAgain) {
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

TEST_F(QuotasHandlerTest, ANumberIsAnIdUnlessItIsAName) {
  records_.keep("/vol", kUsers);
  for (const auto& [name, id] : {std::pair{"77", 1077}, std::pair{"78", 78}}) {
    const Dictionary reply =
        call("setLimits", {{"path", "/vol"}, {"name", name}, {"hardBytes", 1}});
    EXPECT_EQ(reply.dictionary("entry")->integer("id"), id);
  }
}

TEST_F(QuotasHandlerTest, WhatCannotBeLimitedChangesNothing) {
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
