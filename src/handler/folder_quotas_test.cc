// The quotas of a folder's volume in the requests that read and write its settings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "base/status.h"
#include "support/handler_fixture.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kState = std::to_string(quotaCommand(kQuotaStateCommand, 0));
const std::string kOn = std::to_string(quotaCommand(kQuotaOnCommand, 0));
const std::string kOff = std::to_string(quotaCommand(kQuotaOffCommand, 0));

// A real folder, because markers and quota files are real; it is no volume's root.
class FolderQuotas : public HandlerFixture {
 protected:
  FolderQuotas() { tree.setFolder(path()); }

  const std::string& path() const { return folder_.path(); }
  Dictionary read() {
    return handler.performOperation("readSettings",
                                    {{"optionalArguments", Dictionary{{"path", path()}}}});
  }
  Dictionary write(const Dictionary& configuration) {
    return handler.performOperation(
        "writeSettings",
        {{"optionalArguments", Dictionary{{"path", path()}}}, {"configuration", configuration}});
  }
  static const Dictionary& quotasIn(const Dictionary& reply) {
    return *reply.dictionary("configuration")->dictionary("volumeQuotas");
  }
  void refuse(const std::string& word, int error) {
    trace.when(
        [word](const ServiceCall& call) {
          return call.operation == "quotactl" && call.detail == word;
        },
        [error](const ServiceCall&) { return error; });
  }

  TestFolder folder_;
};

TEST_F(FolderQuotas, AreInConfigurationOfSharedAndUnsharedFolders) {
  EXPECT_EQ(quotasIn(read()), (Dictionary{{"isEnabled", false}}));
  quotaControl.setOn("/");
  addSharePoint("a", path());
  EXPECT_EQ(quotasIn(read()), (Dictionary{{"isEnabled", true}}));
}

TEST_F(FolderQuotas, AreReadAfterTheSharePoint) {
  trace.forgetCalls();
  read();
  EXPECT_THAT(trace.sequence({"findRecordsOfTypes", "quotactl"}),
              ElementsAre("findRecordsOfTypes " + path(), "quotactl " + path()));
}

TEST_F(FolderQuotas, OfAMissingFolderAreTheErrorAlone) {
  tree.remove(path());
  const Dictionary reply = read();
  EXPECT_EQ(quotasIn(reply), (Dictionary{{"quotaError", "FILE_NOT_FOUND_ERR"}}));
  EXPECT_EQ(reply.integer("readStatus"), 0);
}

TEST_F(FolderQuotas, AreEmptyAndNotReadAfterEarlierFailure) {
  addSharePoint("a", path());
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  const Dictionary reply = read();
  EXPECT_EQ(reply.integer("readStatus"), CANNOT_RETRIEVE_SHARE_POINTS_ERR);
  EXPECT_EQ(quotasIn(reply), Dictionary());
  EXPECT_EQ(trace.count("quotactl"), 0U);
}

TEST_F(FolderQuotas, OwnFailureSetsStatusAndKeepsPartialQuotas) {
  refuse(kState, EPERM);
  const Dictionary reply = read();
  EXPECT_EQ(reply.integer("readStatus"), EPERM);
  EXPECT_EQ(quotasIn(reply), (Dictionary{{"isEnabled", false}}));
  EXPECT_FALSE(reply.contains("error"));
}

TEST_F(FolderQuotas, TheWholeServersFormHasNone) {
  const Dictionary reply = handler.performOperation("readSettings", {});
  EXPECT_FALSE(reply.dictionary("configuration")->contains("volumeQuotas"));
  handler.performOperation(
      "writeSettings",
      {{"configuration", Dictionary{{"volumeQuotas", Dictionary{{"isEnabled", true}}}}}});
  EXPECT_EQ(trace.count("quotactl"), 0U);
}

TEST_F(FolderQuotas, AreSwitchedOnAndOffAndReadBack) {
  volumes.mount({path(), "/dev/sdz1", "ext4"});
  Dictionary reply = write({{"volumeQuotas", Dictionary{{"isEnabled", true}}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(quotasIn(reply), (Dictionary{{"isEnabled", true}, {"usr", Array{}}}));
  EXPECT_THAT(programs.started(),
              ElementsAre(RecordingProgramRunner::Run{"/sbin/quotacheck", {"-u", path()}}));
  reply = write({{"volumeQuotas", Dictionary{{"isEnabled", false}}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(quotasIn(reply), (Dictionary{{"isEnabled", false}}));
}

TEST_F(FolderQuotas, ThatAreNoDictionaryAreIgnored) {
  for (const Value& quotas : {Value("on"), Value(true), Value(Array{true}), Value(1)}) {
    EXPECT_EQ(write({{"volumeQuotas", quotas}}).integer("writeStatus"), 0);
  }
  EXPECT_TRUE(std::filesystem::is_empty(path()));
  EXPECT_THAT(programs.started(), IsEmpty());
}

TEST_F(FolderQuotas, AreWrittenBetweenPrivilegesAndSharePoint) {
  trace.forgetCalls();
  write({{"fileAccessPrivs", Dictionary{{"privs", "700"}}},
         {"volumeQuotas", Dictionary{{"isEnabled", false}}},
         {"sharePointRecord", Dictionary{{"path", path()}, {"name", "a"}}}});
  std::vector<std::string> order;
  for (const ServiceCall& call : trace.calls()) {
    const bool written = call.operation == "applyAttributes" || call.operation == "newRecord" ||
                         (call.operation == "quotactl" && call.detail == kOff);
    if (written) order.push_back(call.operation);
  }
  EXPECT_THAT(order, ElementsAre("applyAttributes", "quotactl", "newRecord"));
}

TEST_F(FolderQuotas, RefusalSetsStatusButWritesSharePoint) {
  const Dictionary reply =
      write({{"volumeQuotas", Dictionary{{"isEnabled", true}}},
             {"sharePointRecord", Dictionary{{"path", path()}, {"name", "a"}}}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SET_QUOTA_STATE_ERR);
  EXPECT_EQ(*reply.string("writeError"), "CANNOT_SET_QUOTA_STATE_ERR");
  EXPECT_EQ(sharePointNames(), std::vector<std::string>{"a"});
}

TEST_F(FolderQuotas, RefusalHidesSharePointFailure) {
  refuse(kOff, EIO);
  trace.raise("newRecord", DirectoryError(EIO, "damaged"));
  const Dictionary request{{"volumeQuotas", Dictionary{{"isEnabled", false}}},
                           {"sharePointRecord", Dictionary{{"path", path()}, {"name", "a"}}}};
  EXPECT_EQ(write(request).integer("writeStatus"), CANNOT_SET_QUOTA_STATE_ERR);
  trace.forgetRules();
  trace.raise("newRecord", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(write(request).integer("writeStatus"), CANNOT_SAVE_SHARE_POINT_ERR);
}

TEST_F(FolderQuotas, PrivilegesFailureHidesRefusalWithoutPreventingIt) {
  refuse(kOn, EIO);
  const Dictionary reply = write({{"fileAccessPrivs", Dictionary{{"owner", "nobody-here"}}},
                                  {"volumeQuotas", Dictionary{{"isEnabled", true}}}});
  EXPECT_EQ(reply.integer("writeStatus"), USER_NOT_FOUND_ERR);
  EXPECT_EQ(programs.started().size(), 1U);
}

}  // namespace
}  // namespace paddock
