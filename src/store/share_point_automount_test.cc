#include "store/share_point_automount.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "store/directory_access.h"
#include "store/share_point_update.h"
#include "store/share_point_writing.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using ::testing::Contains;
using ::testing::Not;

using schema::kMounts;
using schema::kVfsLinkDir;
using schema::kVfsOpts;
using schema::kVfsType;

constexpr const char* kNode = "/LDAP/site";
constexpr const char* kRecord = "server.example:/srv/a";
constexpr const char* kUrl = "url==vsp://;AUTH=NO%20USER%20AUTHENT@server.example/";

class AutomountRecord : public ModuleFixture {
 protected:
  AutomountRecord() {
    directory.addNode(kNode, "ReadWrite");
    directory.addRecord(kNode, "dsRecTypeStandard:Users", "admin");
    directory.setPassword(kNode, "admin", "secret");
    directory.addRecord(kNode, "dsRecTypeStandard:Groups", "paddock",
                        {{"dsAttrTypeStandard:GroupMembership", Array{"admin"}}});
    directory.addRecord("/Local", "dsRecTypeStandard:Groups", "paddock",
                        {{"dsAttrTypeStandard:GroupMembership", Array{"admin"}}});
  }

  static Status set(const std::string& mountPath, const std::string& type,
                    const std::string& shareName = "a", const std::string& password = "secret") {
    return set_automount_record("/srv/a", kNode, mountPath, type, "admin", password, shareName);
  }
  static Status remove(const std::string& node = kNode, const std::string& password = "secret") {
    return delete_automount_record("/srv/a", node, "admin", password);
  }
  std::vector<std::string> names() { return recordNames(kMounts, kNode); }
  std::vector<std::string> attributeNames() { return record()->getAllAttributes(); }
  std::unique_ptr<DirectoryRecord> record(const std::string& name = kRecord) {
    return directory.openLocal()->findNode(kNode)->findRecord(name, kMounts);
  }
  Array valuesOf(const char* attribute) { return record()->getAttribute(attribute); }
};

TEST_F(AutomountRecord, IsNamedAfterTheHostAndTheFolder) {
  EXPECT_EQ(set("/Network/Servers/", "0"), kSuccess);
  EXPECT_EQ(names(), std::vector<std::string>{kRecord});
}

TEST_F(AutomountRecord, SaysWhereClientsMountTheShare) {
  set("/Network/Library", "1");
  EXPECT_EQ(valuesOf(kVfsLinkDir), (Array{"/Network/Library"}));
}

TEST_F(AutomountRecord, VspInServersFolderPutsNetBeforeUrl) {
  set("/Network/Servers/", "0");
  EXPECT_EQ(valuesOf(kVfsType), (Array{"url"}));
  EXPECT_EQ(valuesOf(kVfsOpts), (Array{"net", std::string(kUrl) + "a"}));
}

TEST_F(AutomountRecord, OverVspElsewhereHasTheUrlAlone) {
  set("/Network/Library", "0");
  EXPECT_EQ(valuesOf(kVfsType), (Array{"url"}));
  EXPECT_EQ(valuesOf(kVfsOpts), (Array{std::string(kUrl) + "a"}));
}

TEST_F(AutomountRecord, NfsInServersFolderHasOnlyNetOption) {
  set("/Network/Servers/", "1");
  EXPECT_EQ(valuesOf(kVfsType), (Array{"nfs"}));
  EXPECT_EQ(valuesOf(kVfsOpts), (Array{"net"}));
}

TEST_F(AutomountRecord, OverNfsElsewhereLosesItsOptions) {
  set("/Network/Servers/", "0");
  set("/Network/Library", "1");
  EXPECT_EQ(valuesOf(kVfsType), (Array{"nfs"}));
  EXPECT_THAT(attributeNames(), Not(Contains(kVfsOpts)));
}

TEST_F(AutomountRecord, OnlyTheTextZeroMeansVsp) {
  for (const char* type : {"00", "", " 0", "0 ", "2", "-1", "vsp"}) {
    set("/Network/Library", type);
    EXPECT_EQ(valuesOf(kVfsType), (Array{"nfs"})) << type;
  }
}

TEST_F(AutomountRecord, ServersFolderWithoutTrailingSlashIsOrdinaryFolder) {
  for (const char* path : {"/Network/Servers", "/network/servers/", "/Network/Servers//", ""}) {
    set(path, "1");
    EXPECT_TRUE(valuesOf(kVfsOpts).empty()) << path;
  }
}

TEST_F(AutomountRecord, ShareNameIsPercentEncodedInUrl) {
  const std::pair<const char*, const char*> cases[] = {
      {"Team Files", "Team%20Files"},
      {"100%", "100%25"},
      {"\xC3\xA9t\xC3\xA9", "%C3%A9t%C3%A9"},
      {"\xF0\x9F\x90\x8E", "%F0%9F%90%8E"},
      {"a/b;c?d:e@f&g=h+i$j,k", "a/b;c?d:e@f&g=h+i$j,k"},
      {"-_.!~*'()", "-_.!~*'()"},
      {"\"<>#{}|\\^[]`\n\x7F", "%22%3C%3E%23%7B%7D%7C%5C%5E%5B%5D%60%0A%7F"},
      {"", ""},
  };
  for (const auto& [name, encoded] : cases) {
    set("/Network/Library", "0", name);
    EXPECT_EQ(valuesOf(kVfsOpts), (Array{std::string(kUrl) + encoded})) << name;
  }
}

TEST_F(AutomountRecord, ExistingRecordIsChanged) {
  directory.addRecord(kNode, kMounts, kRecord, {{kVfsOpts, Array{"old", "older"}}, {"x", "kept"}});
  set("/Network/Library", "0");
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(valuesOf(kVfsOpts), (Array{std::string(kUrl) + "a"}));
  EXPECT_EQ(valuesOf("x"), (Array{"kept"}));
}

TEST_F(AutomountRecord, WrongOrEmptyPasswordChangesNothingSilently) {
  for (const char* password : {"wrong", ""}) {
    EXPECT_EQ(set("/Network/Library", "0", "a", password), kSuccess);
    EXPECT_TRUE(names().empty());
  }
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AutomountRecord, WithoutAHostNameNothingIsChanged) {
  hostName.setError(EFAULT);
  EXPECT_EQ(set("/Network/Library", "0"), kSuccess);
  EXPECT_TRUE(names().empty());
}

TEST_F(AutomountRecord, FailedRecordCreationIsNoError) {
  directory.setReadOnlyNode(kNode, "ReadOnly");
  EXPECT_EQ(set("/Network/Library", "0"), kSuccess);
  EXPECT_TRUE(names().empty());
}

TEST_F(AutomountRecord, ANodeThatDoesNotExistIsRaised) {
  EXPECT_THROW(
      set_automount_record("/srv/a", "/LDAP/none", "/Network/Library", "0", "admin", "secret", "a"),
      DirectoryError);
}

TEST_F(AutomountRecord, ANodeThatNothingNamesIsNone) {
  EXPECT_EQ(set_automount_record("/srv/a", "", "/Network/Library", "0", "admin", "secret", "a"),
            kSuccess);
  EXPECT_TRUE(names().empty());
}

TEST_F(AutomountRecord, IsDeleted) {
  set("/Network/Library", "0");
  EXPECT_EQ(remove(), kSuccess);
  EXPECT_TRUE(names().empty());
}

TEST_F(AutomountRecord, DeletingMissingRecordSucceeds) { EXPECT_EQ(remove(), kSuccess); }

TEST_F(AutomountRecord, IsNotFoundAfterTheHostWasRenamed) {
  set("/Network/Library", "0");
  hostName.setName("other.example");
  EXPECT_EQ(remove(), kSuccess);
  EXPECT_EQ(names(), std::vector<std::string>{kRecord});
}

TEST_F(AutomountRecord, DeletingWithWrongPasswordKeepsRecordAndSucceeds) {
  set("/Network/Library", "0");
  EXPECT_EQ(remove(kNode, "wrong"), kSuccess);
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(AutomountRecord, ADeletionThatIsRefusedGivesItsStatus) {
  set("/Network/Library", "0");
  directory.setReadOnlyNode(kNode, "ReadOnly");
  EXPECT_EQ(remove(), -3);
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(AutomountRecord, DeletingOnMissingNodeReturnsDistinctStatus) {
  EXPECT_EQ(remove("/LDAP/none"), CANNOT_DELETE_AUTOMOUNT_ERR);
}

TEST_F(AutomountRecord, DeletingWithoutHostNameReturnsMissingNodeStatus) {
  set("/Network/Library", "0");
  hostName.setError(EFAULT);
  EXPECT_EQ(remove(), CANNOT_DELETE_AUTOMOUNT_ERR);
  EXPECT_EQ(names().size(), 1U);
}

class AutomountedSharePoint : public AutomountRecord {
 protected:
  static Array credentials(const std::string& node = kNode) {
    return {
        Dictionary{{"nodePath", node}, {"adminUserName", "admin"}, {"adminPassword", "secret"}}};
  }
  static Dictionary automounted() {
    return {{"path", "/srv/a"},         {"name", "a"},
            {"nameOverVSP", "Team"},    {"isAutomounted", true},
            {"automountDSPath", kNode}, {"automountMountPath", "/Network/Library"}};
  }
  // One whose folder is in no shared-file list, so that its deletion takes its directory record.
  void addAutomounted() {
    addSharePoint("a", "/srv/a", {{schema::kAutomountDsPath, kNode}});
    set("/Network/Library", "0");
  }
  static Status write(const Dictionary& settings, const Array& with = credentials()) {
    SharePointRecord sharePoint = SharePointRecord::recordWithDictionary(settings);
    return update_sharepoint(sharePoint, with);
  }
};

TEST_F(AutomountedSharePoint, GetsRecordWithCredentialsOfItsNode) {
  EXPECT_EQ(write(automounted()), kSuccess);
  EXPECT_EQ(names(), std::vector<std::string>{kRecord});
  EXPECT_EQ(valuesOf(kVfsOpts), (Array{std::string(kUrl) + "Team"}));
}

TEST_F(AutomountedSharePoint, FileSystemTypeIsSentAsDecimalText) {
  Dictionary settings = automounted();
  settings.set("automountFileSystemType", 1);
  write(settings);
  EXPECT_EQ(valuesOf(kVfsType), (Array{"nfs"}));
}

TEST_F(AutomountedSharePoint, MissingNodeCredentialsWriteItWithoutRecord) {
  EXPECT_EQ(write(automounted(), {}), kSuccess);
  EXPECT_EQ(write(automounted(), credentials("/Local")), kSuccess);
  EXPECT_TRUE(names().empty());
  EXPECT_EQ(sharePointNames(), std::vector<std::string>{"a"});
}

TEST_F(AutomountedSharePoint, LosesRecordWhenAutomountingEnds) {
  write(automounted());
  EXPECT_EQ(write({{"path", "/srv/a"}, {"isAutomounted", false}}), kSuccess);
  EXPECT_TRUE(names().empty());
  EXPECT_TRUE(valuesOfSharePoint("a", schema::kAutomountDsPath).empty());
}

TEST_F(AutomountedSharePoint, KeepsItsAttributesWhileItIsAutomounted) {
  write(automounted());
  EXPECT_EQ(valuesOfSharePoint("a", schema::kAutomountDsPath), (Array{kNode}));
  EXPECT_EQ(valuesOfSharePoint("a", schema::kStaticMountPath), (Array{"/Network/Library"}));
}

TEST_F(AutomountedSharePoint, MissingNodeEndsWrite) {
  Dictionary settings = automounted();
  settings.set("automountDSPath", "/LDAP/none");
  EXPECT_THROW(write(settings), DirectoryError);
}

TEST_F(AutomountedSharePoint, ItsDeletionTakesTheRecordWithIt) {
  addAutomounted();
  delete_sharepoint("/srv/a", credentials());
  EXPECT_TRUE(names().empty());
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(AutomountedSharePoint, DeletionContinuesWhenRecordRemovalFails) {
  addAutomounted();
  directory.failOpening(kNode, ETIMEDOUT);
  delete_sharepoint("/srv/a", credentials());
  directory.failOpening(kNode, 0);
  EXPECT_EQ(names().size(), 1U);
  EXPECT_TRUE(sharePointNames().empty());
}

}  // namespace
}  // namespace paddock
