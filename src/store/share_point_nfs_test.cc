#include "store/share_point_nfs.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kMounts;
using schema::kReshareMountName;
using schema::kSharePoints;

TEST(NfsReshare, IsAnyPathWithFolderNameAsPrefix) {
  EXPECT_TRUE(is_nfs_reshare("/nfs_reshares"));
  EXPECT_TRUE(is_nfs_reshare("/nfs_reshares/x"));
  EXPECT_TRUE(is_nfs_reshare("/nfs_reshares2/x"));
}

TEST(NfsReshare, IsNoOtherPath) {
  for (const char* path : {"", "/", "/nfs_reshare", "/NFS_RESHARES/x", "nfs_reshares/x",
                           "/srv/nfs_reshares/x", " /nfs_reshares"}) {
    EXPECT_FALSE(is_nfs_reshare(path)) << path;
  }
}

class NfsReshareWriting : public ModuleFixture {
 protected:
  void SetUp() override {
    addSharePoint("r", "/nfs_reshares/r");
    volumes.mount({"/nfs_reshares/r", "server:/export", "nfs4"});
  }
  void write(const std::string& path = "/nfs_reshares/r") {
    const auto record =
        services().directory->openLocal()->localNode()->findRecord("r", kSharePoints);
    trace.forgetCalls();
    write_nfs_reshare(path, *record);
  }
  Array mountName() { return valuesOfSharePoint("r", kReshareMountName); }
};

TEST_F(NfsReshareWriting, AsksTheFileBrowserForAMountRecord) {
  write();
  ASSERT_EQ(plugins.sent().size(), 1U);
  const RecordingPluginCommands::Sent& sent = plugins.sent().front();
  EXPECT_EQ(sent.bundle, "paddock_filebrowser");
  EXPECT_EQ(sent.module, "paddock_filebrowser");
  EXPECT_EQ(sent.user, std::nullopt);
  EXPECT_EQ(sent.command, (Dictionary{{"command", "nfsWriteMountRec"},
                                      {"nfsServerHostName", "server"},
                                      {"nfsExportPath", "/export"},
                                      {"nfsResharePath", "/nfs_reshares/r"}}));
}

TEST_F(NfsReshareWriting, NotesTheMountSource) {
  write();
  EXPECT_EQ(mountName(), (Array{"server:/export"}));
}

TEST_F(NfsReshareWriting, SendsMountPointForFolderBelowIt) {
  write("/nfs_reshares/r/deep/folder");
  ASSERT_EQ(plugins.sent().size(), 1U);
  EXPECT_EQ(*plugins.sent().front().command.string("nfsResharePath"), "/nfs_reshares/r");
}

TEST_F(NfsReshareWriting, TheReplyOfTheFileBrowserIsIgnored) {
  for (const Dictionary& reply :
       {Dictionary{}, Dictionary{{"error", "no such plug-in"}}, Dictionary{{"status", 5}}}) {
    plugins.setPlugin("paddock_filebrowser", [reply](const Dictionary&) { return reply; });
    write();
    EXPECT_EQ(mountName(), (Array{"server:/export"}));
  }
}

TEST_F(NfsReshareWriting, ExistingMountRecordEndsWriting) {
  addRecord(kMounts, "server:/export");
  write();
  EXPECT_TRUE(plugins.sent().empty());
  EXPECT_TRUE(mountName().empty());
}

TEST_F(NfsReshareWriting, MountRecordOfOtherNodeOrTypeIgnored) {
  directory.addNode("/Other", "ReadWrite");
  directory.addRecord("/Other", kMounts, "server:/export");
  addRecord("dsRecTypeStandard:Users", "server:/export");
  write();
  EXPECT_EQ(plugins.sent().size(), 1U);
}

TEST_F(NfsReshareWriting, FailedMountRecordSearchCountsAsMissing) {
  addRecord(kMounts, "server:/export");
  const auto record = services().directory->openLocal()->localNode()->findRecord("r", kSharePoints);
  trace.raiseFor("findRecord", "server:/export", DirectoryError(EIO, "damaged"), 1);
  write_nfs_reshare("/nfs_reshares/r", *record);
  EXPECT_EQ(plugins.sent().size(), 1U);
  trace.raiseFor("findRecord", "server:/export", std::runtime_error("broken"), 1);
  write_nfs_reshare("/nfs_reshares/r", *record);
  EXPECT_EQ(plugins.sent().size(), 2U);
  EXPECT_EQ(mountName(), (Array{"server:/export"}));
}

TEST_F(NfsReshareWriting, AFolderThatCannotBeAskedEndsIt) {
  for (const int error : {ENOENT, EACCES, EIO}) {
    volumes.setError("/nfs_reshares/r", error);
    write();
    EXPECT_TRUE(plugins.sent().empty());
    EXPECT_TRUE(mountName().empty());
    EXPECT_TRUE(trace.callsOf("findRecord").empty());
  }
}

TEST_F(NfsReshareWriting, ASourceWithoutAColonEndsIt) {
  volumes.mount({"/nfs_reshares/r", "/dev/vdb1", "ext4"});
  write();
  EXPECT_TRUE(plugins.sent().empty());
  EXPECT_TRUE(mountName().empty());
}

TEST_F(NfsReshareWriting, ExtraColonsSendTwoPartsAndStoreAll) {
  volumes.mount({"/nfs_reshares/r", "server:/export:more", "nfs"});
  write();
  ASSERT_EQ(plugins.sent().size(), 1U);
  EXPECT_EQ(*plugins.sent().front().command.string("nfsServerHostName"), "server");
  EXPECT_EQ(*plugins.sent().front().command.string("nfsExportPath"), "/export");
  EXPECT_EQ(mountName(), (Array{"server:/export:more"}));
}

TEST_F(NfsReshareWriting, StepsComeInTheirOrder) {
  write();
  EXPECT_EQ(trace.sequence({"statfs", "findRecord", "doCommand", "setAttribute"}),
            (std::vector<std::string>{"statfs /nfs_reshares/r", "findRecord server:/export",
                                      "doCommand paddock_filebrowser", "setAttribute r"}));
}

TEST_F(NfsReshareWriting, UnstorableSourceThrowsAfterCommand) {
  trace.raise("setAttribute", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(write(), DirectoryError);
  EXPECT_EQ(plugins.sent().size(), 1U);
  EXPECT_TRUE(mountName().empty());
}

TEST_F(NfsReshareWriting, NoSessionIsLeftOpen) {
  write();
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
