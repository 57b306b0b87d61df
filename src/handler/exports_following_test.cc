// Lines added to the exports file by others, and the requests that follow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/handler_fixture.h"

namespace paddock {
namespace {

class ExportsFollowing : public HandlerFixture {
 protected:
  static Dictionary folder(const std::string& path) { return Dictionary{{"path", path}}; }
  Dictionary readFolder(const std::string& path) {
    return handler.performOperation("readSettings", {{"optionalArguments", folder(path)}});
  }
  Dictionary write(const std::string& path, const Dictionary& configuration) {
    return handler.performOperation(
        "writeSettings", {{"optionalArguments", folder(path)}, {"configuration", configuration}});
  }
  bool hasExport(const Dictionary& reply) {
    return reply.dictionary("configuration")
               ->dictionary("sharePointRecord")
               ->dictionary("nfsExportRecord") != nullptr;
  }
};

TEST_F(ExportsFollowing, UnrelatedRequestPreservesManualLine) {
  readExportsFile("# mine\n");
  setExportsFile("# mine\n/by/hand *(ro)\n");
  write("/srv/a", {{"fileAccessPrivs", Dictionary{}}});
  EXPECT_EQ(exportsFile(), "# mine\n/by/hand *(ro)\n");
}

TEST_F(ExportsFollowing, AddingSharePreservesManualLine) {
  readExportsFile("# mine\n");
  setExportsFile("# mine\n/by/hand *(ro)\n");
  write("/srv/a",
        {{"sharePointRecord", Dictionary{{"path", "/srv/a"},
                                         {"name", "a"},
                                         {"nfsExportRecord", exportTo("*", Array{"rw"})}}}});
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)"}) + "# mine\n/by/hand *(ro)\n");
}

TEST_F(ExportsFollowing, RemovingSharePreservesManualLine) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  setExportsFile(managedBlock({"/srv/a *(ro)"}) + "/by/hand *(ro)\n");
  write("/srv/a", {{"sharePointRecord", Dictionary{{"isShared", false}}}});
  EXPECT_EQ(exportsFile(), "/by/hand *(ro)\n");
}

TEST_F(ExportsFollowing, FolderReadReturnsCurrentExports) {
  addSharePoint("a", "/srv/a");
  readExportsFile("");
  EXPECT_FALSE(hasExport(readFolder("/srv/a")));
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  EXPECT_TRUE(hasExport(readFolder("/srv/a")));
}

TEST_F(ExportsFollowing, TicksLogUnreadableFileOnce) {
  readExportsFile("# mine\n");
  setExportsFile("# mine\n\xFF\n");
  for (std::uint64_t tick = 2; tick < 5; ++tick) handler.doIdleAtCount(tick);
  EXPECT_THAT(logger.lines(),
              ::testing::ElementsAre(RecordingLogger::Line{
                  kLogError, "paddock_sharing: cannot read /etc/exports: it is not UTF-8"}));
}

TEST_F(ExportsFollowing, ATickReadsAChangedFile) {
  readExportsFile("");
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(handler.doIdleAtCount(2), 0);
  NFSExportRecordPtr record;
  get_export_record("/srv/a", record);
  EXPECT_NE(record, nullptr);
}

TEST_F(ExportsFollowing, TickWithUnchangedFileNeitherReadsNorWrites) {
  readExportsFile("# mine\n");
  trace.forgetCalls();
  for (const std::uint64_t count : {0U, 2U, 3U}) EXPECT_EQ(handler.doIdleAtCount(count), 0);
  EXPECT_THAT(trace.calls(), testing::Each(testing::Field(&ServiceCall::operation, "identify")));
}

TEST_F(ExportsFollowing, UnwrittenExportIsNotReturned) {
  addSharePoint("a", "/srv/a");
  readExportsFile("# mine\n");
  trace.fail("replace", ENOSPC);
  write("/srv/a",
        {{"sharePointRecord",
          Dictionary{{"path", "/srv/a"}, {"nfsExportRecord", exportTo("*", Array{"rw"})}}}});
  trace.forgetRules();
  EXPECT_FALSE(hasExport(readFolder("/srv/a")));
  EXPECT_EQ(exportsFile(), "# mine\n");
}

}  // namespace
}  // namespace paddock
