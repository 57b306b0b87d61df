#include "paddock_denials/denials_handler.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <utility>

#include "base/guid.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_membership.h"
#include "platform/testing/recording_host_services.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint32_t kCrew = 100;
constexpr std::uint32_t kNight = 200;
constexpr std::uint32_t kAnna = 1001;
constexpr int kRead = 10;

// A sharing module that holds one list, for a folder that the kernel permits the crew to read.
class DenialsHandler : public ::testing::Test {
 protected:
  DenialsHandler() {
    accounts_.addGroup("night", kNight);
    siblings_.setPlugin("paddock_sharing", [this](const Dictionary& command) {
      return *command.string("command") == "readSettings" ? read() : write(command);
    });
    acl_ = {entry(false, groupGuid(kNight)), entry(true, groupGuid(kCrew))};
    members_ = {{kAnna, "anna", {kCrew, kNight}}};
    handler_.emplace(DenialServices{&siblings_, &membership_, &accounts_,
                                    [this](const std::string&, KernelSide& kernel) {
                                      kernel = this->kernel();
                                      return kernelError_;
                                    },
                                    [this](std::uint32_t gid) {
                                      if (meanwhile_) std::exchange(meanwhile_, {})();
                                      return gid == kNight ? members_ : std::vector<Person>{};
                                    }});
  }

  std::string groupGuid(std::uint32_t gid) {
    Guid guid;
    EXPECT_EQ(membership_.gidToGuid(gid, guid), 0);
    return guidText(guid);
  }
  std::string userGuid(std::uint32_t uid) {
    Guid guid;
    EXPECT_EQ(membership_.uidToGuid(uid, guid), 0);
    return guidText(guid);
  }
  static Value entry(bool allow, const std::string& guid) {
    return Dictionary{
        {"guid", guid}, {"allowPermission", allow ? "YES" : "NO"}, {"bitmap", kRead}, {"flags", 0}};
  }

  Dictionary read() const {
    return {{"readStatus", readStatus_},
            {"configuration", Dictionary{{"fileAccessPrivs", Dictionary{{"acl", acl_}}}}}};
  }
  // As the module keeps it: with GUIDs.
  Dictionary write(const Dictionary& command) {
    ++writes_;
    const Array& sent =
        *command.dictionary("configuration")->dictionary("fileAccessPrivs")->array("acl");
    acl_.clear();
    for (const Value& value : sent) {
      const Dictionary& one = *value.dictionary();
      const auto uid = one.integer("uniqueID");
      const std::string guid =
          uid ? userGuid(static_cast<std::uint32_t>(*uid)) : *one.string("guid");
      acl_.push_back(entry(*one.string("allowPermission") == "YES", guid));
    }
    return {{"writeStatus", 0}};
  }
  // The crew and the users in the list are in the kernel's ACL.
  KernelSide kernel() {
    KernelSide kernel;
    kernel.access.groups = {{kCrew, 5}};
    kernel.access.mask = 7;
    for (const Person& person : members_) {
      for (const Value& value : acl_) {
        if (*value.dictionary()->string("guid") == userGuid(person.uid)) {
          kernel.access.users.push_back({person.uid, 0});
        }
      }
    }
    return kernel;
  }

  Dictionary call(const char* operation, const Dictionary& request = {{"path", "/srv/a"}}) {
    return handler_->performOperation(operation, request);
  }
  Dictionary setStrict(bool strict) {
    return call("setStrict", {{"path", "/srv/a"}, {"strict", strict}});
  }

  PluginHost host_;
  RecordingPluginCommands siblings_;
  InMemoryMembership membership_;
  InMemoryAccounts accounts_;
  Array acl_;
  std::vector<Person> members_;
  int readStatus_ = 0;
  int kernelError_ = 0;
  int writes_ = 0;
  std::function<void()> meanwhile_;  // called once, during the lookup of members
  std::optional<DenialsRequestHandler> handler_;
};

TEST_F(DenialsHandler, OnlyWhatReadsMayBeViewed) {
  for (const auto& operation : handler_->operations()) {
    EXPECT_EQ(operation.changes, operation.name != "getDenied") << operation.name;
  }
  EXPECT_THROW(call("getAllowed"), std::invalid_argument);
}

TEST_F(DenialsHandler, WhoPassesADenialIsNamed) {
  EXPECT_EQ(call("getDenied"), (Dictionary{{"status", 0},
                                           {"strict", false},
                                           {"denials", Array{Dictionary{{"number", 1},
                                                                        {"gid", kNight},
                                                                        {"group", "night"},
                                                                        {"people", Array{"anna"}},
                                                                        {"count", 1}}}}}));
  EXPECT_EQ(writes_, 0);
  EXPECT_FALSE(handler_->context().takeDirty());
}

TEST_F(DenialsHandler, AStrictListNamesThemAndIsRemembered) {
  const Dictionary reply = setStrict(true);
  EXPECT_EQ(reply,
            (Dictionary{{"status", 0}, {"strict", true}, {"written", 1}, {"denials", Array{}}}));
  EXPECT_EQ(acl_, (Array{entry(false, userGuid(kAnna)), entry(false, groupGuid(kNight)),
                         entry(true, groupGuid(kCrew))}));
  const auto saved = handler_->context().takeDirty();
  ASSERT_TRUE(saved);
  EXPECT_EQ(*saved->dictionary("strict"),
            (Dictionary{{"/srv/a", Dictionary{{"200", Array{kAnna}}}}}));
}

TEST_F(DenialsHandler, TheDailyCheckFollowsTheMembers) {
  setStrict(true);
  members_ = {{1002, "bert", {kCrew, kNight}}};
  handler_->doIdleAtCount(DenialsRequestHandler::kFirstRefresh - 1);
  EXPECT_EQ(writes_, 1);
  handler_->doIdleAtCount(DenialsRequestHandler::kFirstRefresh);
  EXPECT_EQ(acl_, (Array{entry(false, userGuid(1002)), entry(false, groupGuid(kNight)),
                         entry(true, groupGuid(kCrew))}));
  handler_->doIdleAtCount(DenialsRequestHandler::kFirstRefresh +
                          DenialsRequestHandler::kRefreshEach);
  EXPECT_EQ(writes_, 2) << "nothing changed";
}

TEST_F(DenialsHandler, ListWithoutGroupDenialsIsForgotten) {
  setStrict(true);
  acl_ = {entry(false, userGuid(kAnna)), entry(true, groupGuid(kCrew))};
  const Array kept = acl_;
  EXPECT_EQ(*call("refreshStrict", {}).array("lists"),
            (Array{Dictionary{{"path", "/srv/a"}, {"changed", false}, {"status", 0}}}));
  EXPECT_EQ(acl_, kept);
  EXPECT_THAT(*call("refreshStrict", {}).array("lists"), IsEmpty());
  EXPECT_EQ(setStrict(true).boolean("strict"), false);
}

TEST_F(DenialsHandler, SwitchedOffItLeavesTheList) {
  setStrict(true);
  EXPECT_EQ(setStrict(false).boolean("strict"), false);
  EXPECT_THAT(acl_, SizeIs(3));
  EXPECT_THAT(*call("refreshStrict", {}).array("lists"), IsEmpty());
}

TEST_F(DenialsHandler, AListThatCannotBeReadStaysRemembered) {
  setStrict(true);
  readStatus_ = ENOENT;
  const Array lists = *call("refreshStrict", {}).array("lists");
  ASSERT_THAT(lists, SizeIs(1));
  EXPECT_EQ(lists[0].dictionary()->integer("status"), ENOENT);
  EXPECT_THAT(host_.log(), HasSubstr("The list of /srv/a cannot be kept strict"));
  readStatus_ = 0;
  EXPECT_EQ(call("getDenied").boolean("strict"), true);
}

TEST_F(DenialsHandler, WhatCannotBeJudgedIsNotMadeStrict) {
  kernelError_ = EACCES;
  EXPECT_EQ(setStrict(true).integer("status"), EACCES);
  kernelError_ = 0;
  EXPECT_EQ(call("getDenied").boolean("strict"), false);
  EXPECT_EQ(call("setStrict", {{"path", "relative"}, {"strict", true}}).integer("status"), EINVAL);
  EXPECT_EQ(call("setStrict").integer("status"), EINVAL);
  EXPECT_EQ(call("getDenied", {}).integer("status"), EINVAL);
  EXPECT_EQ(writes_, 0);
}

TEST_F(DenialsHandler, EntriesSetDuringMemberLookupAreKept) {
  ASSERT_EQ(setStrict(true).integer("status"), 0);
  members_.push_back({1002, "bert", {kCrew, kNight}});
  const Value others = entry(true, userGuid(1003));
  meanwhile_ = [&] { acl_.push_back(others); };
  EXPECT_EQ(call("refreshStrict", {}).integer("status"), 0);
  EXPECT_THAT(acl_, ::testing::Contains(others));
  EXPECT_THAT(acl_, ::testing::Contains(entry(false, userGuid(1002))));
}

}  // namespace
}  // namespace paddock
