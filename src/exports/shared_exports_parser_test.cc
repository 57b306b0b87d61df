#include "exports/shared_exports_parser.h"

#include <gtest/gtest.h>

#include "support/exports_parser_test_support.h"

namespace paddock {
namespace {

class SharedExportsParser : public ParserTest {
 protected:
  SharedExportsParser() { resetSharedExportsParserForTesting(); }
  ~SharedExportsParser() override { resetSharedExportsParserForTesting(); }
};

TEST_F(SharedExportsParser, IsOneObjectThatHasReadTheFile) {
  files_.setFile(kFile, kBegin + "/srv/a *(ro)\n" + kEnd);
  NFSExportParser& parser = shared_exports_parser();
  EXPECT_EQ(parser.file(), kFile);
  EXPECT_EQ(parser.exportCount(), 1U);
  EXPECT_EQ(&shared_exports_parser(), &parser);
}

TEST_F(SharedExportsParser, TheFileMayLieElsewhere) {
  Services elsewhere = services();
  elsewhere.exportsPath = "/root/etc/exports";
  const ServicesGuard guard(elsewhere);
  EXPECT_EQ(shared_exports_parser().file(), "/root/etc/exports");
}

TEST_F(SharedExportsParser, GetsTheExportOfAPath) {
  files_.setFile(kFile, kBegin + "/srv/a *(ro)\n" + kEnd);
  NFSExportRecordPtr record;
  EXPECT_EQ(get_export_record("/srv/a", record), 0);
  EXPECT_EQ(record, shared_exports_parser().exportWithPath("/srv/a"));
  ASSERT_NE(record, nullptr);
}

TEST_F(SharedExportsParser, APathWithoutAnExportGetsNone) {
  NFSExportRecordPtr record = exportTo("/srv/a");
  EXPECT_EQ(get_export_record("/srv/b", record), 0);
  EXPECT_EQ(record, nullptr);
}

TEST_F(SharedExportsParser, DeletingRemovesTheExportAndDoesNotWrite) {
  const std::string text = kBegin + "/srv/a *(ro)\n" + kEnd;
  files_.setFile(kFile, text);
  EXPECT_EQ(delete_export_record(exportTo("/srv/a", "another")), 0);
  EXPECT_EQ(shared_exports_parser().exportCount(), 0U);
  EXPECT_EQ(files_.contents(kFile), text);
}

TEST_F(SharedExportsParser, DeletingWhatIsNotThereIsNoError) {
  EXPECT_EQ(delete_export_record(exportTo("/srv/b")), 0);
  EXPECT_EQ(delete_export_record(nullptr), 0);
}

TEST_F(SharedExportsParser, PersistingFaultIsLoggedOnce) {
  files_.set(kFile, {InMemoryTextFiles::Kind::file, "# mine\n", 0});
  for (int tick = 0; tick < 3; ++tick) {
    refresh_exports();
    log_new_exports_fault();
  }
  const std::vector<RecordingLogger::Line> once = {
      {kLogError, "paddock_sharing: cannot read /etc/exports: Permission denied"}};
  EXPECT_EQ(logger_.lines(), once);
  files_.set(kFile, {InMemoryTextFiles::Kind::file, "# mine\n", 0644});
  refresh_exports();
  log_new_exports_fault();
  EXPECT_EQ(logger_.lines(), once);
  files_.set(kFile, {InMemoryTextFiles::Kind::file, "# mine\n", 0});
  refresh_exports();
  log_new_exports_fault();
  EXPECT_EQ(logger_.lines().size(), 2U);
}

}  // namespace
}  // namespace paddock
