// What others write into the exports file while it is managed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "exports/nfs_export_parser.h"
#include "exports/replaced_exports.h"
#include "support/exports_parser_test_support.h"

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class NFSExportParserChanges : public ParserTest {
 protected:
  // 1'700'000'000 seconds after 1970, as the clock of the tests has it.
  static constexpr const char* kKept = "/etc/exports.replaced-20231114T221320Z";

  std::vector<std::string> logged() const {
    std::vector<std::string> texts;
    for (const auto& line : logger_.lines()) {
      EXPECT_EQ(line.priority, kLogWarning);
      texts.push_back(line.text);
    }
    return texts;
  }
  std::vector<std::string> keptFiles() {
    std::vector<std::string> names;
    EXPECT_EQ(files_.namesBeginningWith("/etc", "exports.replaced-", names), 0);
    return names;
  }
};

TEST_F(NFSExportParserChanges, AChangedFileIsReadAgain) {
  const auto parser = parserOf("# mine\n");
  files_.setFile(kFile, "# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_TRUE(parser->readFileIfChanged());
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
}

TEST_F(NFSExportParserChanges, AnUnchangedFileIsNotReadAgain) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  const auto record = parser->exportWithPath("/srv/a");
  EXPECT_TRUE(parser->readFileIfChanged());
  EXPECT_EQ(parser->exportWithPath("/srv/a"), record);
  files_.replace(kFile, kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_TRUE(parser->readFileIfChanged());
  EXPECT_EQ(parser->exportWithPath("/srv/a"), record) << "another file of the same text";
}

TEST_F(NFSExportParserChanges, UnreadableFileKeepsPreviousLines) {
  const auto parser = parserOf("# mine\n");
  const std::string before = parser->description();
  files_.setFile(kFile, "# caf\xE9\n");
  EXPECT_FALSE(parser->readFileIfChanged());
  files_.remove(kFile);
  EXPECT_FALSE(parser->readFileIfChanged());
  EXPECT_EQ(parser->description(), before);
}

TEST_F(NFSExportParserChanges, UnwrittenChangesAreReappliedToNewLines) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n/srv/b *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/c"));
  parser->removeExportWithPath("/srv/a");
  EXPECT_TRUE(parser->hasUnwrittenChanges());
  files_.setFile(kFile, "# other\n" + kBegin + "/srv/a *(rw)\n/srv/b *(rw)\n" + kEnd);
  EXPECT_TRUE(parser->readFileIfChanged());
  EXPECT_EQ(written(*parser), "# other\n" + kBegin + "/srv/c *(ro)\n/srv/b *(rw)\n" + kEnd);
  EXPECT_FALSE(parser->hasUnwrittenChanges());
}

TEST_F(NFSExportParserChanges, UnwrittenRemovalsSurviveRereading) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n/srv/b *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/c"));
  parser->removeExportWithPath("/srv/a");
  EXPECT_TRUE(parser->readFileWithoutRemoved());
  EXPECT_EQ(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/c"), nullptr);
  EXPECT_EQ(written(*parser), "# mine\n" + kBegin + "/srv/b *(ro)\n" + kEnd);
}

TEST_F(NFSExportParserChanges, UnwrittenAdditionsAreDroppedWhenFileIsUnreadable) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n/srv/b *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/c"));
  parser->removeExportWithPath("/srv/a");
  files_.setFile(kFile, "# caf\xE9\n");
  EXPECT_FALSE(parser->readFileWithoutRemoved());
  EXPECT_EQ(parser->exportWithPath("/srv/c"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_NE(parser->exportWithPath("/srv/b"), nullptr);
}

TEST_F(NFSExportParserChanges, ReaddedExportCancelsRemoval) {
  const std::string text = "# mine\n" + kBegin + "/srv/a *(rw)\n" + kEnd;
  const auto parser = parserOf(text);
  parser->removeExportWithPath("/srv/a");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->readFileWithoutRemoved());
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_FALSE(parser->hasUnwrittenChanges());
  EXPECT_EQ(written(*parser), text);
}

TEST_F(NFSExportParserChanges, ALineWrittenJustBeforeAWriteStays) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  files_.setFile(kFile, "# mine\n/by/hand *(ro)\n");
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(keptFiles(), ElementsAre());
  EXPECT_THAT(logged(), ElementsAre());
}

TEST_F(NFSExportParserChanges, ALineWrittenInTheLastInstantStays) {
  const auto parser = parserOf("# mine\n# theirs\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  files_.setBeforeReplacing([this] { files_.setFile(kFile, "# mine\n/by/hand *(ro)\n"); });
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(keptFiles(), ElementsAre());
  EXPECT_THAT(logged(), ElementsAre());
}

TEST_F(NFSExportParserChanges, FileCreatedInLastInstantStays) {
  const auto parser = NFSExportParser::parserWithFile(kFile);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  files_.setBeforeReplacing([this] { files_.setFile(kFile, "/by/hand *(ro)\n"); });
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "/by/hand *(ro)\n");
  EXPECT_THAT(keptFiles(), ElementsAre());
}

TEST_F(NFSExportParserChanges, LaterEditStaysAndEarlierEditIsKept) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  files_.setBeforeReplacing([this] { files_.setFile(kFile, "# mine\n/by/hand *(ro)\n"); });
  files_.setBeforePuttingBack([this] { files_.setFile(kFile, "# mine\n/by/another *(ro)\n"); });
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kFile),
            kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n/by/another *(ro)\n");
  EXPECT_EQ(files_.contents(kKept), "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(
      logged(),
      ElementsAre("paddock_sharing: /etc/exports was changed by others while it was replaced; "
                  "that file is kept as " +
                      std::string(kKept),
                  "paddock_sharing: /etc/exports lost the line: /by/hand *(ro)"));
}

TEST_F(NFSExportParserChanges, RepeatedlyChangingFileIsOverwrittenAndKept) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  int edits = 0;
  std::function<void()> edit = [&] {
    files_.setFile(kFile, "# edit " + std::to_string(++edits) + "\n");
    files_.setBeforeReplacing(edit);
  };
  files_.setBeforeReplacing(edit);
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kKept), "# edit " + std::to_string(edits) + "\n");
  EXPECT_EQ(files_.contents(kFile),
            kBegin + "/srv/a *(ro)\n" + kEnd + "# edit " + std::to_string(edits - 1) + "\n");
}

TEST_F(NFSExportParserChanges, OverwrittenLineIsKeptAsideAndLogged) {
  const auto parser = parserOf("# mine\n# theirs\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  files_.setBeforeReplacing([this] { files_.setFile(kFile, "# mine\n  /by/hand *(ro)\x1B[2J\n"); });
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n# theirs\n");
  EXPECT_EQ(files_.contents(kKept), "# mine\n  /by/hand *(ro)\x1B[2J\n");
  EXPECT_THAT(
      logged(),
      ElementsAre("paddock_sharing: /etc/exports was changed by others while it was replaced; "
                  "that file is kept as " +
                      std::string(kKept),
                  "paddock_sharing: /etc/exports lost the line: /by/hand *(ro)\\x1B[2J",
                  "paddock_sharing: /etc/exports has the line again: # theirs"));
}

TEST_F(NFSExportParserChanges, WriteWithoutReadingKeepsOverwrittenFile) {
  const auto parser = parserOf("# mine\n");
  files_.setFile(kFile, "# by hand\n");
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), "# mine\n");
  EXPECT_EQ(files_.contents(kKept), "# by hand\n");
}

TEST_F(NFSExportParserChanges, AFileThatMayChangeYetIsKept) {
  const auto parser = parserOf("# mine\n");
  files_.setOpenForWriting(true);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_TRUE(parser->writeFileKeepingOthersChanges());
  EXPECT_EQ(files_.contents(kKept), "# mine\n");
  EXPECT_THAT(logged(), ElementsAre(HasSubstr("was open for writing elsewhere")));
}

TEST_F(NFSExportParserChanges, PruningLeavesLastTenKeptFilesAndOthers) {
  files_.setFile("/etc/exports.replaced-by-anna", "x");
  const auto parser = parserOf("# mine\n");
  for (int round = 0; round < 13; ++round) {
    files_.setFile(kFile, "# by hand " + std::to_string(round) + "\n");
    EXPECT_TRUE(parser->writeFile());
    // Two in one second have different names all the same.
    if (round != 5) clock_.advance(std::chrono::minutes(1));
  }
  const auto names = keptFiles();
  ASSERT_EQ(names.size(), 11U);
  EXPECT_EQ(files_.contents("/etc/" + names.front()), "# by hand 3\n");
  EXPECT_EQ(files_.contents("/etc/" + names.at(9)), "# by hand 12\n");
  EXPECT_EQ(names.back(), "exports.replaced-by-anna");
}

TEST_F(NFSExportParserChanges, FailedKeepingReportsFileAsStaying) {
  const auto parser = parserOf("# mine\n");
  // Every name of a minute is taken.
  for (int second = 20; second < 80; ++second) {
    const std::string minute = second < 60 ? "13" : "14";
    const std::string digits = std::to_string(100 + second % 60).substr(1);
    files_.setFile("/etc/exports.replaced-20231114T22" + minute + digits + "Z", "taken");
  }
  files_.setFile(kFile, "# by hand\n");
  EXPECT_TRUE(parser->writeFile());
  ASSERT_EQ(logged().size(), 3U);
  EXPECT_THAT(logged().front(), HasSubstr("could not be kept as /etc/exports.replaced-"));
  EXPECT_THAT(logged().front(), HasSubstr("stays in its folder"));
}

TEST_F(NFSExportParserChanges, LeftoverOfAbortedWriteIsNamed) {
  files_.setFile("/etc/.exports.abcdefghij27", "/by/hand *(ro)\n");
  files_.setFile("/etc/.exports.swp", "somebody's");
  logLeftFiles(kFile);
  EXPECT_THAT(logged(), ElementsAre("paddock_sharing: a write of /etc/exports was broken off and "
                                    "left /etc/.exports.abcdefghij27: see whether it has lines by "
                                    "hand that the file lacks, and remove it"));
  EXPECT_EQ(files_.contents("/etc/.exports.abcdefghij27"), "/by/hand *(ro)\n");
}

}  // namespace
}  // namespace paddock
