#include "paddock_directory/directory_handler.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "paddock/password_checks.h"
#include "paddock/request_conditions.h"
#include "paddock_directory/record_operations.h"
#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/forwarding_directory.h"
#include "platform/testing/in_memory_directory.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kShares = "dsRecTypeStandard:SharePoints";
constexpr const char* kAdmins = "paddock-test-admins";

class DirectoryHandler : public ::testing::Test {
 protected:
  Dictionary call(const char* operation, const Dictionary& request) {
    Dictionary reply = handler_.performOperation(operation, request);
    EXPECT_NE(reply.find("status")->integer(), nullptr);
    const auto status = *reply.integer("status");
    if (status == 0)
      EXPECT_FALSE(reply.contains("error"));
    else
      EXPECT_EQ(*reply.string("error"), std::strerror(static_cast<int>(status)));
    return reply;
  }
  std::int64_t statusOf(const char* operation, const Dictionary& request) {
    return *call(operation, request).integer("status");
  }
  void put(const std::string& type, const std::string& name, const Dictionary& attributes = {}) {
    ASSERT_EQ(statusOf("putRecord", {{"type", type}, {"name", name}, {"attributes", attributes}}),
              0);
  }
  std::optional<Dictionary> record(const std::string& name, const std::string& type = kShares) {
    const Dictionary reply = call("getRecord", {{"type", type}, {"name", name}});
    EXPECT_EQ(*reply.integer("status"), 0);
    const Dictionary* found = reply.dictionary("record");
    return found == nullptr ? std::nullopt : std::optional(*found);
  }
  std::string databasePath() const { return host_.root() + "/var/lib/paddock/directory.sqlite"; }

  // Users anna, who is an administrator, and bert, who is not.
  void addUsers() {
    for (const char* name : {"anna", "bert"}) {
      put(schema::kUsers, name);
      ASSERT_EQ(statusOf("setPassword", {{"name", name}, {"password", std::string(name) + "'s"}}),
                0);
    }
    put(schema::kGroups, kAdmins, {{schema::kGroupMembership, Array{"anna"}}});
  }
  static Dictionary as(const std::string& user, const std::string& password, Dictionary request) {
    request.set("adminUserName", user);
    request.set("adminPassword", password);
    return request;
  }

  PluginHost host_{{{"access", Dictionary{{"admin_group", kAdmins}}}}};
  DirectoryRequestHandler handler_;
};

TEST_F(DirectoryHandler, OnlyWhatReadsMayBeViewed) {
  std::vector<std::string> reading;
  std::vector<std::string> changing;
  for (const auto& operation : handler_.operations())
    (operation.changes ? changing : reading).push_back(operation.name);
  EXPECT_THAT(reading, ElementsAre("listNodes", "listRecords", "getRecord"));
  EXPECT_THAT(changing, ElementsAre("putRecord", "deleteRecord", "setPassword"));
}

TEST_F(DirectoryHandler, AnUnknownOperationIsAnInvalidArgument) {
  EXPECT_THROW(handler_.performOperation("dropRecords", {}), std::invalid_argument);
}

TEST_F(DirectoryHandler, TheDatabaseStandsBelowTheHostsRoot) {
  put(kShares, "Docs");
  EXPECT_TRUE(std::filesystem::exists(databasePath()));
}

TEST_F(DirectoryHandler, RecordsAreCreatedReadAndListed) {
  put(kShares, "Docs", {{"a", Array{"1", "2"}}, {"b", "3"}});
  const Dictionary expected{{schema::kRecordName, Array{"Docs"}},
                            {schema::kRecordType, Array{kShares}},
                            {"a", Array{"1", "2"}},
                            {"b", Array{"3"}}};
  EXPECT_EQ(record("docs"), expected);
  put(kShares, "Bare");
  put("dsRecTypeStandard:Mounts", "Mount");
  const Dictionary reply = call("listRecords", {{"type", kShares}});
  ASSERT_EQ(reply.array("records")->size(), 2U);
  EXPECT_EQ((*reply.array("records"))[0], Value(expected));
  EXPECT_EQ((*call("listRecords", {{"type", "no such type"}}).array("records")), Array{});
}

TEST_F(DirectoryHandler, PuttingReplacesTheNamedAttributesOnly) {
  put(kShares, "Docs", {{"a", "1"}, {"b", "2"}});
  put(kShares, "DOCS", {{"b", Array{"3", "4"}}});
  EXPECT_EQ(*record("Docs")->array("a"), Array{"1"});
  EXPECT_EQ(*record("Docs")->array("b"), (Array{"3", "4"}));
  EXPECT_EQ(statusOf("putRecord", {{"type", kShares}, {"name", "Docs"}}), 0);
  EXPECT_EQ(record("Docs")->size(), 4U);
}

TEST_F(DirectoryHandler, PuttingRemovesTheAttributesThatAreNamed) {
  put(kShares, "Docs", {{"a", "1"}, {"b", "2"}, {"c", "3"}});
  EXPECT_EQ(statusOf("putRecord", {{"type", kShares},
                                   {"name", "Docs"},
                                   {"attributes", Dictionary{{"a", "4"}}},
                                   {"removeAttributes", Array{"b", "not there"}}}),
            0);
  EXPECT_EQ(*record("Docs")->array("a"), Array{"4"});
  EXPECT_FALSE(record("Docs")->contains("b"));
  EXPECT_TRUE(record("Docs")->contains("c"));
}

TEST_F(DirectoryHandler, InvalidRemovalsAreRefusedWithoutChange) {
  put(kShares, "Docs", {{"a", "1"}});
  const auto before = record("Docs");
  for (const Value& wrong :
       {Value("a"), Value(Array{7}), Value(Array{""}), Value(Array{schema::kRecordName}),
        Value(Array{"a", schema::kRecordType})}) {
    EXPECT_EQ(statusOf("putRecord", {{"type", kShares},
                                     {"name", "Docs"},
                                     {"attributes", Dictionary{{"a", "2"}}},
                                     {"removeAttributes", wrong}}),
              EINVAL);
  }
  EXPECT_EQ(record("Docs"), before);
}

TEST_F(DirectoryHandler, WhatWasReadCanBePutBack) {
  put(kShares, "Docs", {{"a", Array{"1", "2"}}});
  const auto before = record("Docs");
  put(kShares, "Docs", *before);
  EXPECT_EQ(record("Docs"), before);
}

// Requests that name a state, answered by an identity in the place of a digest.
class ConditionalDirectoryRequests : public DirectoryHandler {
 protected:
  // The reply's tag; absent when the condition did not hold.
  std::optional<std::string> tagged(const char* operation, const Dictionary& request,
                                    std::optional<std::string> ifMatch = {}) {
    const auto hash = [](std::string_view state) {
      return std::to_string(std::hash<std::string_view>()(state));
    };
    RequestConditions conditions(std::move(ifMatch), hash);
    const RequestConditionsScope scope(&conditions);
    try {
      EXPECT_EQ(statusOf(operation, request), 0);
    } catch (const PreconditionFailed&) {
      return std::nullopt;
    }
    return conditions.replyTag();
  }
  static Dictionary docs(const char* value) {
    return {{"type", kShares}, {"name", "Docs"}, {"attributes", Dictionary{{"a", value}}}};
  }
};

TEST_F(ConditionalDirectoryRequests, RecordChangesOnlyInReadState) {
  put(kShares, "Docs", {{"a", "1"}});
  const auto tag = tagged("getRecord", docs(""));
  ASSERT_TRUE(tag && !tag->empty());
  EXPECT_TRUE(tagged("putRecord", docs("2"), tag));
  EXPECT_FALSE(tagged("putRecord", docs("3"), tag));
  EXPECT_FALSE(tagged("deleteRecord", docs(""), tag));
  EXPECT_EQ(*record("Docs")->array("a"), Array{"2"});
  EXPECT_TRUE(tagged("deleteRecord", docs(""), tagged("getRecord", docs(""))));
}

TEST_F(ConditionalDirectoryRequests, AStarMeansARecordThatIsThere) {
  EXPECT_FALSE(tagged("putRecord", docs("1"), "*"));
  EXPECT_EQ(record("Docs"), std::nullopt);
  put(kShares, "Docs");
  EXPECT_TRUE(tagged("putRecord", docs("1"), "*"));
}

TEST_F(ConditionalDirectoryRequests, AMissingRecordHasNoTag) {
  EXPECT_EQ(tagged("getRecord", docs("")), "");
}

TEST_F(DirectoryHandler, EveryPasswordCheckIsReportedPerNode) {
  addUsers();
  std::vector<std::string> told;
  const PasswordCheckScope scope([&told](const PasswordCheck& check) {
    told.push_back(check.node + " " + check.name + (check.passed ? " passed" : " failed"));
  });
  const Dictionary request{{"type", schema::kUsers}, {"name", "bert"}};
  EXPECT_EQ(statusOf("getRecord", request), 0);
  EXPECT_EQ(statusOf("getRecord", as("bert", "bert's", request)), 0);
  EXPECT_EQ(statusOf("listRecords", as("bert", "anna's", request)), EACCES);
  EXPECT_EQ(statusOf("deleteRecord", as("nobody at all", "x", request)), EACCES);
  Dictionary searched = as("anna", "anna's", request);
  searched.set("node", "/Search");
  EXPECT_EQ(statusOf("getRecord", searched), 0);
  EXPECT_THAT(told, ElementsAre("/Local bert passed", "/Local bert failed",
                                "/Local nobody at all failed", "/Local anna passed"));
}

TEST_F(DirectoryHandler, ARefusalSaysWhy) {
  EXPECT_EQ(*call("putRecord", {{"type", kShares}, {"name", "Docs"}, {"attributes", 7}})
                 .string("message"),
            "attributes is no dictionary");
  EXPECT_FALSE(call("getRecord", {{"type", kShares}, {"name", "Docs"}}).contains("message"));
}

TEST_F(DirectoryHandler, AKeyOfTheWrongTypeIsRefused) {
  put(kShares, "Docs");
  for (const char* key : {"node", "type", "name", "adminUserName", "adminPassword"}) {
    Dictionary request{{"type", kShares}, {"name", "Docs"}};
    request.set(key, 7);
    for (const char* operation : {"listRecords", "getRecord", "putRecord", "deleteRecord"}) {
      if (std::string(operation) == "listRecords" && std::string(key) == "name") continue;
      const Dictionary reply = call(operation, request);
      EXPECT_EQ(*reply.integer("status"), EINVAL) << operation << ' ' << key;
      EXPECT_EQ(*reply.string("message"), std::string(key) + " is no string");
    }
  }
  EXPECT_EQ(statusOf("listNodes", {{"paths", 7}}), EINVAL);
  EXPECT_NE(record("Docs"), std::nullopt);
}

TEST_F(DirectoryHandler, PuttingMayRename) {
  put(kShares, "Docs", {{schema::kRecordName, "Papers"}});
  EXPECT_EQ(record("Docs"), std::nullopt);
  EXPECT_NE(record("Papers"), std::nullopt);
  put(kShares, "Other");
  EXPECT_EQ(statusOf("putRecord", {{"type", kShares},
                                   {"name", "Other"},
                                   {"attributes", Dictionary{{schema::kRecordName, "PAPERS"}}}}),
            EEXIST);
}

TEST_F(DirectoryHandler, ReadingOrDeletingMissingRecordSucceeds) {
  EXPECT_EQ(record("Docs"), std::nullopt);
  EXPECT_EQ(statusOf("deleteRecord", {{"type", kShares}, {"name", "Docs"}}), 0);
}

TEST_F(DirectoryHandler, DeletingRemovesTheRecord) {
  put(kShares, "Docs");
  EXPECT_EQ(statusOf("deleteRecord", {{"type", kShares}, {"name", "DOCS"}}), 0);
  EXPECT_EQ(record("Docs"), std::nullopt);
}

TEST_F(DirectoryHandler, WildcardNameIsTakenLiterally) {
  put(kShares, "Docs");
  EXPECT_EQ(record(kRecordsAll), std::nullopt);
}

TEST_F(DirectoryHandler, ATypeAndANameAreNeeded) {
  for (const char* operation : {"getRecord", "putRecord", "deleteRecord"}) {
    EXPECT_EQ(statusOf(operation, {}), EINVAL);
    EXPECT_EQ(statusOf(operation, {{"type", kShares}}), EINVAL);
    EXPECT_EQ(statusOf(operation, {{"name", "Docs"}}), EINVAL);
    EXPECT_EQ(statusOf(operation, {{"type", kShares}, {"name", ""}}), EINVAL);
    EXPECT_EQ(statusOf(operation, {{"type", ""}, {"name", "Docs"}}), EINVAL);
    EXPECT_EQ(statusOf(operation, {{"type", kShares}, {"name", 7}}), EINVAL);
  }
  EXPECT_EQ(statusOf("listRecords", {}), EINVAL);
  EXPECT_EQ(statusOf("setPassword", {{"password", "x"}}), EINVAL);
}

TEST_F(DirectoryHandler, AttributesThatCannotBeSetCreateNothing) {
  for (const Value& wrong :
       {Value(7), Value("text"), Value(Array{}), Value(Dictionary{{"a", 7}}),
        Value(Dictionary{{"a", Array{}}}), Value(Dictionary{{"a", Array{"x", true}}}),
        Value(Dictionary{{"", "x"}}), Value(Dictionary{{schema::kRecordName, ""}}),
        Value(Dictionary{{"a", "1"}, {schema::kRecordType, "another"}})}) {
    EXPECT_EQ(statusOf("putRecord", {{"type", kShares}, {"name", "Docs"}, {"attributes", wrong}}),
              EINVAL);
    EXPECT_EQ(record("Docs"), std::nullopt);
  }
}

TEST_F(DirectoryHandler, ANodeIsNamedByItsPath) {
  EXPECT_EQ(statusOf("listRecords", {{"node", "/LDAP/nowhere"}, {"type", kShares}}), ENOENT);
  const Dictionary root =
      call("getRecord", {{"node", "/System"}, {"type", schema::kUsers}, {"name", "root"}});
  EXPECT_EQ(*root.dictionary("record")->array(schema::kUniqueID), Array{"0"});
  EXPECT_EQ(statusOf("putRecord", {{"node", "/System"}, {"type", kShares}, {"name", "Docs"}}),
            EACCES);
  EXPECT_EQ(
      statusOf("deleteRecord", {{"node", "/System"}, {"type", schema::kUsers}, {"name", "root"}}),
      EACCES);
}

TEST_F(DirectoryHandler, AnAdministratorsPasswordIsCheckedFirst) {
  addUsers();
  const Dictionary docs{{"type", kShares}, {"name", "Docs"}};
  for (const auto& [user, password] : {std::pair{"anna", "wrong"}, std::pair{"anna", ""},
                                       std::pair{"", "x"}, std::pair{"nobody here", "x"}}) {
    EXPECT_EQ(statusOf("putRecord", as(user, password, docs)), EACCES);
    EXPECT_EQ(statusOf("getRecord", as(user, password, docs)), EACCES);
    EXPECT_FALSE(call("listRecords", as(user, password, docs)).contains("records"));
  }
  EXPECT_EQ(record("Docs"), std::nullopt);
  EXPECT_EQ(statusOf("putRecord", as("anna", "anna's", docs)), 0);
  EXPECT_NE(record("Docs"), std::nullopt);
}

TEST_F(DirectoryHandler, AUserWhoIsNoAdministratorReadsOnly) {
  addUsers();
  put(kShares, "Docs");
  const Dictionary docs{
      {"type", kShares}, {"name", "Docs"}, {"attributes", Dictionary{{"a", "1"}}}};
  EXPECT_TRUE(call("getRecord", as("bert", "bert's", docs)).contains("record"));
  EXPECT_EQ(statusOf("putRecord", as("bert", "bert's", docs)), EACCES);
  EXPECT_EQ(statusOf("deleteRecord", as("bert", "bert's", docs)), EACCES);
  EXPECT_EQ(
      statusOf("setPassword", as("bert", "bert's", {{"name", "anna"}, {"password", "stolen"}})),
      EACCES);
  EXPECT_EQ(record("Docs")->size(), 2U);
}

TEST_F(DirectoryHandler, PasswordsAreForUsersOfTheLocalNode) {
  put(kShares, "Docs");
  EXPECT_EQ(statusOf("setPassword", {{"name", "Docs"}, {"password", "x"}}), ENOENT);
  EXPECT_EQ(statusOf("setPassword", {{"name", "root"}, {"password", "x"}}), ENOENT);
  EXPECT_EQ(statusOf("setPassword", {{"node", "/System"}, {"name", "root"}, {"password", "x"}}),
            EACCES);
  put(schema::kUsers, "anna");
  EXPECT_EQ(statusOf("setPassword", {{"name", "anna"}, {"password", ""}}), EINVAL);
  EXPECT_EQ(statusOf("setPassword", {{"name", "anna"}}), EINVAL);
  EXPECT_EQ(statusOf("setPassword", {{"name", "anna"}, {"password", std::string(600, 'x')}}),
            EINVAL);
}

TEST_F(DirectoryHandler, PasswordIsNeverLoggedOrStoredInClear) {
  put(schema::kUsers, "anna");
  ASSERT_EQ(statusOf("setPassword", {{"name", "anna"}, {"password", "opensesame"}}), 0);
  EXPECT_EQ(statusOf("getRecord",
                     as("anna", "opensesame2", {{"type", schema::kUsers}, {"name", "anna"}})),
            EACCES);
  std::ifstream file(databasePath(), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(bytes.find("opensesame"), std::string::npos);
  EXPECT_EQ(record("anna", schema::kUsers)->size(), 2U);
  EXPECT_EQ(host_.log().find("opensesame"), std::string::npos);
}

TEST_F(DirectoryHandler, DamagedDatabaseReturnsStatusAndLogsLine) {
  put(kShares, "Docs");
  std::ofstream(databasePath(), std::ios::trunc) << std::string(8192, 'x');
  EXPECT_EQ(statusOf("listRecords", {{"type", kShares}}), EIO);
  EXPECT_EQ(statusOf("putRecord", {{"type", kShares}, {"name", "Docs"}}), EIO);
  EXPECT_THAT(host_.log(), HasSubstr(databasePath()));
  std::filesystem::remove(databasePath());
  EXPECT_EQ(statusOf("putRecord", {{"type", kShares}, {"name", "Docs"}}), 0);
}

// Whichever call of the directory fails: the status is returned, a new record is complete or
// absent, and an old one has its previous or its requested state.
TEST_F(DirectoryHandler, DirectoryFailuresReturnStatusAndKeepRecordsWhole) {
  const Dictionary attributes{{"a", "new"}, {"b", "new"}};
  const Dictionary request{{"type", kShares}, {"name", "Docs"}, {"attributes", attributes}};
  for (const bool old : {false, true}) {
    std::size_t failures = 0;
    for (std::size_t n = 1;; ++n) {
      InMemoryDirectory directory(caseFold);
      if (old) directory.addRecord("/Local", kShares, "Docs", {{"a", "old"}});
      FaultPlan plan(n);
      ForwardingDirectory faulty(directory, plan);
      const Dictionary reply = records::put(faulty, request);
      EXPECT_EQ(*reply.integer("status"), plan.fired() ? EIO : 0) << plan.failedCall();
      const auto record = directory.openLocal()->localNode()->findRecord("Docs", kShares);
      const bool made = record && record->getAttributeFirstValue("a") == "new" &&
                        record->getAttributeFirstValue("b") == "new";
      const bool untouched = old ? record && record->getAttributeFirstValue("a") == "old" &&
                                       !record->getAttributeFirstValue("b")
                                 : record == nullptr;
      EXPECT_EQ(made, !plan.fired()) << plan.failedCall();
      EXPECT_TRUE(made || untouched) << plan.failedCall();
      EXPECT_EQ(directory.openSessions(), 0);
      if (!plan.fired()) break;
      ++failures;
    }
    EXPECT_GE(failures, 4U);
  }
}

TEST_F(DirectoryHandler, OtherOperationsReturnFailuresAsStatus) {
  const Dictionary request{{"type", schema::kUsers}, {"name", "anna"}};
  for (const auto operation : {records::list, records::get, records::remove}) {
    for (std::size_t n = 1;; ++n) {
      InMemoryDirectory directory(caseFold);
      directory.addRecord("/Local", schema::kUsers, "anna");
      FaultPlan plan(n);
      plan.setError(n % 2 == 0 ? std::optional<Status>(ETIMEDOUT) : std::nullopt);
      ForwardingDirectory faulty(directory, plan);
      const Dictionary reply = operation(faulty, request);
      if (!plan.fired()) {
        EXPECT_EQ(*reply.integer("status"), 0);
        break;
      }
      EXPECT_EQ(*reply.integer("status"), n % 2 == 0 ? ETIMEDOUT : EIO) << plan.failedCall();
      EXPECT_TRUE(reply.contains("error"));
      EXPECT_NE(directory.openLocal()->localNode()->findRecord("anna", schema::kUsers), nullptr);
    }
  }
}

TEST_F(DirectoryHandler, ConcurrentCreationOfSameRecordCreatesOne) {
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&, i] {
      const std::string attribute = "from " + std::to_string(i);
      EXPECT_EQ(statusOf("putRecord", {{"type", kShares},
                                       {"name", "Docs"},
                                       {"attributes", Dictionary{{attribute, "1"}}}}),
                0);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(record("Docs")->size(), 10U);
}

}  // namespace
}  // namespace paddock
