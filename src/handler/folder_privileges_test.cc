// The privileges of a folder in the requests that read and write its settings.
#include <gtest/gtest.h>

#include <cerrno>

#include "base/status.h"
#include "platform/testing/fault_plan.h"
#include "platform/testing/service_doubles.h"
#include "support/handler_fixture.h"

namespace paddock {
namespace {

constexpr const char* kFolder = "/srv/a";
constexpr const char* kGuid = "DEADBEEF-0000-0000-0000-000000000001";

class FolderPrivilegesTest : public HandlerFixture {
 protected:
  FolderPrivilegesTest() {
    accounts.addUser("anna", 1000);
    accounts.addGroup("staff", 20);
    tree.setFolder(kFolder);
  }

  Dictionary read() {
    return handler.performOperation("readSettings",
                                    {{"optionalArguments", Dictionary{{"path", kFolder}}}});
  }
  Dictionary write(const Dictionary& configuration) {
    return handler.performOperation(
        "writeSettings",
        {{"optionalArguments", Dictionary{{"path", kFolder}}}, {"configuration", configuration}});
  }
  Dictionary writePrivileges(const Dictionary& privileges) {
    return write({{"fileAccessPrivs", privileges}});
  }
  static const Dictionary& part(const Dictionary& reply, const char* key) {
    return *reply.dictionary("configuration")->dictionary(key);
  }
  static const Dictionary& privileges(const Dictionary& reply) {
    return part(reply, "fileAccessPrivs");
  }

  static Dictionary entry() {
    return {{"guid", kGuid}, {"allowPermission", "YES"}, {"bitmap", 2}, {"flags", 32}};
  }
  // The entry as it is read.
  static Dictionary entryRead() {
    return {{"displayName", kGuid}, {"guid", kGuid}, {"allowPermission", "YES"},
            {"bitmap", 2},          {"flags", 32},   {"isUser", 1061109567}};
  }
  static Dictionary newShare() { return {{"path", kFolder}, {"name", "a"}}; }
  void storeEntry() {
    acl::Entry stored;
    stored.tag = acl::kExtendedAllow;
    stored.qualifier = parseGuid(kGuid);
    stored.permset.permissions = 2;
    stored.flagset.flags = 32;
    tree.setAcl(kFolder, {.entries = {stored}});
  }
};

class FolderPrivilegesReading : public FolderPrivilegesTest {};

TEST_F(FolderPrivilegesReading, AFoldersPrivilegesAreInTheConfiguration) {
  storeEntry();
  const Dictionary reply = read();
  EXPECT_EQ(reply.integer("readStatus"), 0);
  EXPECT_EQ(privileges(reply), (Dictionary{{"owner", "root"},
                                           {"group", "root"},
                                           {"fileType", "directory"},
                                           {"privs", "755"},
                                           {"acl", Array{entryRead()}},
                                           {"path", kFolder}}));
}

TEST_F(FolderPrivilegesReading, MissingFolderIsNoFailureAndChainContinues) {
  tree.remove(kFolder);
  addSharePoint("a", kFolder);
  const Dictionary reply = read();
  EXPECT_EQ(reply.integer("readStatus"), 0);
  EXPECT_EQ(privileges(reply), missingPrivs(kFolder));
  EXPECT_EQ(part(reply, "sharePointRecord").boolean("isShared"), true);
}

TEST_F(FolderPrivilegesReading, UnreadablePrivilegesAreNoFailureAndChainContinues) {
  addSharePoint("a", kFolder);
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  trace.fail("readAttributes", EIO);
  const Dictionary reply = read();
  EXPECT_EQ(reply.integer("readStatus"), 0);
  EXPECT_EQ(privileges(reply), (Dictionary{{"posixErr", "CANNOT_STAT_ERR"},
                                           {"aclErr", "INVALID_ACL_ERR"},
                                           {"path", kFolder}}));
  EXPECT_EQ(part(reply, "sharePointRecord").boolean("isShared"), true);
}

TEST_F(FolderPrivilegesReading, TheyAreReadBeforeTheSharePoint) {
  read();
  EXPECT_EQ(trace.sequence({"readAttributes", "acl_get_file", "findRecordsOfTypes"}),
            (std::vector<std::string>{"readAttributes /srv/a", "acl_get_file /srv/a",
                                      "findRecordsOfTypes /srv/a"}));
}

TEST_F(FolderPrivilegesReading, FailedNameLookupThrowsAndReleasesLock) {
  storeEntry();
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1);
  EXPECT_THROW(read(), DirectoryError);
  expectLockFree();
  EXPECT_EQ(acl.unreleased(), 0U);
  EXPECT_EQ(read().integer("readStatus"), 0);
}

TEST_F(FolderPrivilegesReading, TheWholeServersFormHasNone) {
  const Dictionary reply = handler.performOperation("readSettings", {});
  EXPECT_FALSE(reply.dictionary("configuration")->contains("fileAccessPrivs"));
  EXPECT_EQ(trace.count("readAttributes"), 0U);
}

class FolderPrivilegesWriting : public FolderPrivilegesTest {};

TEST_F(FolderPrivilegesWriting, WritesAndReadsBackAllPrivilegesAtOnce) {
  const Dictionary reply = writePrivileges(
      {{"owner", "anna"}, {"group", "staff"}, {"privs", "750"}, {"acl", Array{entry()}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_FALSE(reply.contains("writeError"));
  EXPECT_EQ(privileges(reply), (Dictionary{{"owner", "anna"},
                                           {"group", "staff"},
                                           {"fileType", "directory"},
                                           {"privs", "750"},
                                           {"acl", Array{entryRead()}},
                                           {"path", kFolder}}));
}

TEST_F(FolderPrivilegesWriting, WhatWasReadCanBeSentBackChanged) {
  storeEntry();
  addSharePoint("a", kFolder);
  Dictionary configuration = *read().dictionary("configuration");
  Dictionary changed = *configuration.dictionary("fileAccessPrivs");
  changed.set("privs", "700");
  configuration.set("fileAccessPrivs", changed);
  const Dictionary reply = write(configuration);
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_EQ(privileges(reply), changed);
}

TEST_F(FolderPrivilegesWriting, WithoutThemNothingIsChanged) {
  storeEntry();
  for (const Dictionary& configuration :
       {Dictionary{}, Dictionary{{"fileAccessPrivs", "755"}},
        Dictionary{{"fileAccessPrivs", Array{Dictionary{{"privs", "700"}}}}},
        Dictionary{{"fileAccessPrivs", 700}}}) {
    EXPECT_EQ(write(configuration).integer("writeStatus"), 0);
  }
  EXPECT_EQ(trace.count("applyAttributes"), 0U);
  EXPECT_EQ(acl.replacements(), 0);
}

TEST_F(FolderPrivilegesWriting, AnEmptyDictionaryIsAppliedToo) {
  EXPECT_EQ(writePrivileges({}).integer("writeStatus"), 0);
  EXPECT_EQ(trace.count("applyAttributes"), 1U);
}

TEST_F(FolderPrivilegesWriting, PathOfRequestTakesPrecedence) {
  tree.setFolder("/srv/b");
  writePrivileges({{"path", "/srv/b"}, {"privs", "700"}});
  EXPECT_EQ(tree.attributes(kFolder).permissions, 0700U);
  EXPECT_EQ(tree.attributes("/srv/b").permissions, 0755U);
}

TEST_F(FolderPrivilegesWriting, TheyAreWrittenBeforeTheSharePoint) {
  trace.forgetCalls();
  write({{"fileAccessPrivs", Dictionary{{"privs", "700"}, {"acl", Array{entry()}}}},
         {"sharePointRecord", newShare()}});
  EXPECT_EQ(
      trace.sequence({"applyAttributes", "acl_set_file", "newRecord"}),
      (std::vector<std::string>{"applyAttributes /srv/a", "acl_set_file /srv/a", "newRecord a"}));
}

TEST_F(FolderPrivilegesWriting, AFailureIsItsStatusWithItsText) {
  const Dictionary reply = writePrivileges({{"owner", "nobody-here"}});
  EXPECT_EQ(reply.integer("writeStatus"), USER_NOT_FOUND_ERR);
  EXPECT_EQ(*reply.string("writeError"), "USER_NOT_FOUND_ERR");
  EXPECT_EQ(*privileges(reply).string("owner"), "root") << "as it was read back";
}

TEST_F(FolderPrivilegesWriting, SystemCallResultBecomesNegativeStatusWithText) {
  const Array entries = {Dictionary{{"allowPermission", "YES"}, {"isUser", 0}, {"uniqueID", 1000}}};
  FaultPlan plan(1);
  plan.countOnly("acl.acl_set_qualifier");
  const ForwardingServices faulty(services(), plan);
  const ServicesGuard guard(faulty.services());
  const Dictionary reply = writePrivileges({{"acl", entries}});
  EXPECT_EQ(reply.integer("writeStatus"), -1);
  EXPECT_EQ(*reply.string("writeError"), sharing_error_string(-1));
}

TEST_F(FolderPrivilegesWriting, TheirFailureDoesNotStopTheSharePoint) {
  const Dictionary reply = write({{"fileAccessPrivs", Dictionary{{"group", "nobody-here"}}},
                                  {"sharePointRecord", newShare()}});
  EXPECT_EQ(reply.integer("writeStatus"), GROUP_NOT_FOUND_ERR);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(part(reply, "sharePointRecord").boolean("isShared"), true);
}

TEST_F(FolderPrivilegesWriting, TheirFailureHidesOneOfTheSharePoint) {
  volumes.setError(kFolder, EIO);
  const Dictionary reply = write({{"fileAccessPrivs", Dictionary{{"owner", "nobody-here"}}},
                                  {"sharePointRecord", newShare()}});
  EXPECT_EQ(reply.integer("writeStatus"), USER_NOT_FOUND_ERR);
  EXPECT_EQ(trace.count("newRecord"), 1U) << "it was still attempted";
}

TEST_F(FolderPrivilegesWriting, SharePointFailureIsReportedAfterTheirSuccess) {
  volumes.setError(kFolder, EIO);
  const Dictionary reply =
      write({{"fileAccessPrivs", Dictionary{{"privs", "700"}}}, {"sharePointRecord", newShare()}});
  EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(*privileges(reply).string("privs"), "700") << "they stay written";
}

TEST_F(FolderPrivilegesWriting, ARemovalMayCarryThem) {
  addSharePoint("a", kFolder);
  const Dictionary reply = write({{"fileAccessPrivs", Dictionary{{"privs", "700"}}},
                                  {"sharePointRecord", Dictionary{{"isShared", "NO"}}}});
  EXPECT_EQ(reply.integer("writeStatus"), 0);
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(*privileges(reply).string("privs"), "700");
}

TEST_F(FolderPrivilegesWriting, TheWholeServersFormDoesNotReadThem) {
  handler.performOperation(
      "writeSettings",
      {{"configuration",
        Dictionary{{"fileAccessPrivs", Dictionary{{"path", kFolder}, {"privs", "700"}}}}}});
  EXPECT_EQ(tree.attributes(kFolder).permissions, 0755U);
}

TEST_F(FolderPrivilegesWriting, ReadBackExceptionKeepsChangesAndReleasesLock) {
  storeEntry();
  trace.raise("searchNode", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(writePrivileges({{"privs", "700"}}), DirectoryError);
  expectLockFree();
  EXPECT_EQ(tree.attributes(kFolder).permissions, 0700U);
}

}  // namespace
}  // namespace paddock
