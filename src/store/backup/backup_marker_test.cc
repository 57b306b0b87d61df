#include "store/backup/backup_marker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "support/module_fixture.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Kind = InMemoryTextFiles::Kind;

constexpr const char* kMarker = "/srv/a/.com.veltro.backstow.supported";

class BackupMarkerTest : public ModuleFixture {
 protected:
  static Status remove(const std::string& path) { return delete_backup_marker_for_path(path); }
};

TEST_F(BackupMarkerTest, IsRemovedWithoutAWord) {
  files.setFile(kMarker, "");
  EXPECT_EQ(remove("/srv/a"), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarkerTest, ThatIsNotThereIsNoFailureAndNoMessage) {
  files.set("/srv/a", {Kind::folder, "", 0755});
  EXPECT_EQ(remove("/srv/a"), 0);
  EXPECT_EQ(remove("/srv/b"), 0);
  files.setFile("/srv/file", "");
  EXPECT_EQ(remove("/srv/file"), 0);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarkerTest, OnlyTheOneDirectlyInsideIsRemoved) {
  files.setFile(kMarker, "");
  files.setFile("/srv/a/b/.com.veltro.backstow.supported", "");
  files.setFile("/srv/.com.veltro.backstow.supported", "");
  files.setFile("/srv/a/.com.veltro.backstow.supported2", "");
  EXPECT_EQ(remove("/srv/a"), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_NE(files.find("/srv/a/b/.com.veltro.backstow.supported"), nullptr);
  EXPECT_NE(files.find("/srv/.com.veltro.backstow.supported"), nullptr);
  EXPECT_NE(files.find("/srv/a/.com.veltro.backstow.supported2"), nullptr);
}

TEST_F(BackupMarkerTest, ThatIsALinkIsRemovedAndWhatItLeadsToStays) {
  files.setFile("/etc/passwd", "root");
  for (const char* target : {"/etc/passwd", "/nowhere"}) {
    files.set(kMarker, {Kind::link, target, 0777});
    EXPECT_EQ(remove("/srv/a"), 0);
    EXPECT_EQ(files.find(kMarker), nullptr) << target;
  }
  EXPECT_EQ(files.contents("/etc/passwd"), "root");
}

TEST_F(BackupMarkerTest, OfAFolderThatIsNamedByALinkIsRemoved) {
  files.setFile(kMarker, "");
  files.set("/srv/link", {Kind::link, "/srv/a", 0777});
  EXPECT_EQ(remove("/srv/link"), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
}

TEST_F(BackupMarkerTest, ThatIsAFolderStaysWithWhatIsInsideAndIsLogged) {
  files.setFile(std::string(kMarker) + "/inside", "x");
  EXPECT_EQ(remove("/srv/a"), -1);
  EXPECT_EQ(files.contents(std::string(kMarker) + "/inside"), "x");
  EXPECT_THAT(logger.lines(), ElementsAre(RecordingLogger::Line{
                                  kLogError,
                                  "paddock_sharing: Couldn't delete backup share point marker at "
                                  "/srv/a/.com.veltro.backstow.supported\nerror: Is a directory"}));
}

TEST_F(BackupMarkerTest, ThatCannotBeRemovedIsLoggedWithItsErrorAndStays) {
  files.setFile(kMarker, "");
  for (const int error : {EPERM, EACCES, EROFS, EIO, EBUSY}) {
    logger.clear();
    trace.fail("removeFile", error, 1);
    EXPECT_EQ(remove("/srv/a"), -1);
    EXPECT_THAT(logger.lines(),
                ElementsAre(RecordingLogger::Line{
                    kLogError, std::string("paddock_sharing: Couldn't delete backup share point "
                                           "marker at /srv/a/.com.veltro.backstow.supported\n"
                                           "error: ") +
                                   std::strerror(error)}));
  }
  EXPECT_NE(files.find(kMarker), nullptr);
}

TEST_F(BackupMarkerTest, WhereNothingCanBeThereIsNothingToRemove) {
  for (const int error : {ENOENT, ENOTDIR, ENAMETOOLONG, ELOOP}) {
    trace.fail("removeFile", error, 1);
    EXPECT_EQ(remove("/srv/a"), 0) << error;
  }
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarkerTest, OfAPathThatIsNoneIsNotLookedFor) {
  for (const std::string& path :
       {std::string(), std::string("srv/a"), std::string("."), std::string("/srv/a\0x", 8)}) {
    EXPECT_EQ(remove(path), 0);
  }
  EXPECT_EQ(trace.count("removeFile"), 0U);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarkerTest, SlashesAtTheEndOfThePathAreNotShownTwice) {
  trace.fail("removeFile", EPERM);
  EXPECT_EQ(remove("/srv/a//"), -1);
  EXPECT_EQ(remove("/"), -1);
  ASSERT_EQ(logger.lines().size(), 2U);
  EXPECT_THAT(logger.lines()[0].text, ::testing::HasSubstr(" /srv/a/.com.veltro."));
  EXPECT_THAT(logger.lines()[1].text, ::testing::HasSubstr(" /.com.veltro."));
}

TEST_F(BackupMarkerTest, APathWithPercentSignsIsLoggedAsItIs) {
  trace.fail("removeFile", EPERM);
  EXPECT_EQ(remove("/srv/%s%n%@"), -1);
  EXPECT_THAT(logger.lines().front().text,
              ::testing::HasSubstr(" at /srv/%s%n%@/.com.veltro.backstow.supported\nerror: "));
}

}  // namespace
}  // namespace paddock
