#include "exports/nfs_export_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "exports/exports_entry.h"
#include "support/exports_parser_test_support.h"

namespace paddock {

namespace {

using ExportsFileParsing = ParserTest;

TEST_F(ExportsFileParsing, TheMarkersAreWrittenByteForByte) {
  EXPECT_STREQ(kBeginMarker, "###  [  Begin Keelhouse managed exports.  Do Not Edit.");
  EXPECT_STREQ(kEndMarker, "###  ]  End Keelhouse managed exports.");
}

TEST_F(ExportsFileParsing, AParserOfNoFileHasNoLines) {
  NFSExportParser parser;
  EXPECT_EQ(parser.file(), "");
  EXPECT_EQ(parser.exportCount(), 0U);
  EXPECT_EQ(parser.description(), "(\n)");
  EXPECT_FALSE(parser.readFile());
  EXPECT_FALSE(parser.writeFile());
  parser.addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_FALSE(parser.writeFile());
}

TEST_F(ExportsFileParsing, KnowsItsFileAndReadsItAtOnce) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_EQ(parser->file(), kFile);
  EXPECT_EQ(parser->exportCount(), 1U);
}

TEST_F(ExportsFileParsing, AnEmptyFileReadsAsNoLines) {
  const auto parser = parserOf("/srv/a *(ro)\n");
  files_.setFile(kFile, "");
  EXPECT_TRUE(parser->readFile());
  EXPECT_EQ(parser->description(), "(\n)");
}

TEST_F(ExportsFileParsing, AMissingFileKeepsThePreviousLines) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  const std::string before = parser->description();
  files_.remove(kFile);
  EXPECT_FALSE(parser->readFile());
  EXPECT_EQ(parser->description(), before);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
}

TEST_F(ExportsFileParsing, UnreadableFileKeepsPreviousLines) {
  const auto parser = parserOf("# mine\n");
  const std::string before = parser->description();
  files_.setFile(kFile, "# caf\xE9\n");
  EXPECT_FALSE(parser->readFile());
  EXPECT_EQ(parser->description(), before);
  files_.set(kFile, {InMemoryTextFiles::Kind::file, "# new\n", 0});
  EXPECT_FALSE(parser->readFile());
  EXPECT_EQ(parser->description(), before);
}

// Text files whose reading throws.
class ThrowingTextFiles : public InMemoryTextFiles {
 public:
  int read(const std::string& /*path*/, std::string& /*contents*/,
           FileIdentity& /*identity*/) override {
    throw std::runtime_error("reading");
  }
};

TEST_F(ExportsFileParsing, AnExceptionWhileReadingIsAFailedRead) {
  const auto parser = parserOf("# mine\n");
  ThrowingTextFiles throwing;
  const ServicesGuard guard(servicesOn(&throwing));
  EXPECT_FALSE(parser->readFile());
}

TEST_F(ExportsFileParsing, ManualLinesLoseBlankLinesAndIndentation) {
  EXPECT_EQ(rewritten("\n\n# one\n\n  \t/srv/a  *(ro) \t\n \n\t# two"),
            "# one\n/srv/a  *(ro) \t\n# two\n");
}

TEST_F(ExportsFileParsing, HandWrittenExportsAreNoExports) {
  const auto parser = parserOf("/srv/a *(ro)\n");
  EXPECT_EQ(parser->exportCount(), 0U);
  EXPECT_EQ(parser->exportWithPath("/srv/a"), nullptr);
}

TEST_F(ExportsFileParsing, ACarriageReturnStaysPartOfItsLine) {
  EXPECT_EQ(rewritten("# one\r\n\n/srv/a *(ro)\r\n"), "# one\r\n/srv/a *(ro)\r\n");
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\r\n" + kEnd);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\r\n" + kEnd);
}

TEST_F(ExportsFileParsing, EveryLineInsideTheBlockIsARecord) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n# comment\n\n/srv/b *(rw)\n" +
                               kEnd + "# too\n");
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_EQ(written(*parser),
            "# mine\n" + kBegin + "/srv/a *(ro)\n# comment\n/srv/b *(rw)\n" + kEnd + "# too\n");
}

TEST_F(ExportsFileParsing, AnIndentedMarkerIsRecognised) {
  const auto parser = parserOf("  " + kBegin + "/srv/a *(ro)\n\t" + kEnd + "/srv/b *\n");
  EXPECT_EQ(parser->exportCount(), 1U);
}

TEST_F(ExportsFileParsing, TextBehindAMarkerIsLost) {
  EXPECT_EQ(
      rewritten(std::string(kBeginMarker) + " really\n/srv/a *(ro)\n" + kEndMarker + "!\n# mine\n"),
      kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
}

TEST_F(ExportsFileParsing, MarkerWithExtraBlankIsOrdinaryLine) {
  const auto parser = parserOf("### [  Begin Keelhouse managed exports.  Do Not Edit.\n/srv/a *\n");
  EXPECT_EQ(parser->exportCount(), 0U);
}

TEST_F(ExportsFileParsing, MissingEndMarkerRunsBlockToEnd) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n# mine\n/srv/b *(rw)\n");
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n# mine\n/srv/b *(rw)\n" + kEnd);
}

TEST_F(ExportsFileParsing, AnEndMarkerAloneIsDropped) {
  EXPECT_EQ(rewritten("# mine\n" + kEnd + "/srv/a *\n"), "# mine\n/srv/a *\n");
}

TEST_F(ExportsFileParsing, TwoBlocksMergeAroundLinesBetween) {
  const auto parser = parserOf("# top\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "/mine *(rw)\n" +
                               kBegin + "/srv/b *(ro)\n" + kEnd + "# bottom\n");
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(parser->exportWithPath("/mine"), nullptr);
  EXPECT_EQ(written(*parser),
            "# top\n" + kBegin + "/srv/a *(ro)\n/mine *(rw)\n/srv/b *(ro)\n" + kEnd + "# bottom\n");
  EXPECT_TRUE(parser->readFile());
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_NE(parser->exportWithPath("/mine"), nullptr);
}

TEST_F(ExportsFileParsing, FirstExportStartsBlockAtTopOfFile) {
  const auto parser = parserOf("# mine\n/mine *(rw)\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n/mine *(rw)\n");
}

TEST_F(ExportsFileParsing, SecondExportGoesToTopOfBlock) {
  const auto parser = parserOf("# top\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "# bottom\n");
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_EQ(written(*parser),
            "# top\n" + kBegin + "/srv/b *(ro)\n/srv/a *(ro)\n" + kEnd + "# bottom\n");
}

TEST_F(ExportsFileParsing, ReplacedExportMovesToTopOfBlock) {
  const auto parser =
      parserOf("# top\n" + kBegin + "/srv/a *(ro)\n/srv/b *(ro)\n/srv/c *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/c", "host"));
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_EQ(written(*parser),
            "# top\n" + kBegin + "/srv/c host(ro)\n/srv/a *(ro)\n/srv/b *(ro)\n" + kEnd);
}

TEST_F(ExportsFileParsing, ReplacingOnlyExportMovesBlockToTop) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/a", "host"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a host(ro)\n" + kEnd + "# mine\n");
}

TEST_F(ExportsFileParsing, ExistingExportIsChangedInPlaceAndRestored) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n/srv/b *(ro) # b\n" + kEnd);
  const auto existing = parser->exportWithPath("/srv/b");
  existing->addAttributesFromDictionary(exportTo("/srv/b", "host")->dictionary());
  parser->addOrReplaceExport(existing);
  EXPECT_EQ(parser->exportWithPath("/srv/b"), existing);
  EXPECT_EQ(written(*parser), kBegin + "/srv/b host(ro)\n/srv/a *(ro)\n" + kEnd);
}

TEST_F(ExportsFileParsing, RemovingTheLastExportRemovesTheMarkers) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "# too\n");
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(parser->exportCount(), 0U);
  EXPECT_EQ(written(*parser), "# mine\n# too\n");
}

TEST_F(ExportsFileParsing, RemovingWhatIsNotThereDoesNothing) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  parser->removeExportWithPath("/srv/b");
  parser->removeExportWithPath("");
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd);
}

TEST_F(ExportsFileParsing, AllExportsOfOnePathAreRemovedTogether) {
  const auto parser = parserOf(kBegin + "/srv/a one(ro)\n/srv/b *(ro)\n/srv/a two(rw)\n" + kEnd);
  EXPECT_EQ(parser->exportWithPath("/srv/a")->clients().front().host, "one");
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(written(*parser), kBegin + "/srv/b *(ro)\n" + kEnd);
}

TEST_F(ExportsFileParsing, LookupsAreExact) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/a/"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/A"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv"), nullptr);
  EXPECT_EQ(parser->exportWithPath(""), nullptr);
}

TEST_F(ExportsFileParsing, APathIsFoundByItsDecodedText) {
  const auto parser = parserOf(kBegin + "/srv/a\\040b *(ro)\n\"/srv/c d\" *(ro)\n" + kEnd);
  EXPECT_NE(parser->exportWithPath("/srv/a b"), nullptr);
  EXPECT_NE(parser->exportWithPath("/srv/c d"), nullptr);
}

TEST_F(ExportsFileParsing, OtherBlockLinesAreKeptButNeverFound) {
  const std::string text = kBegin + "# comment\n/srv/a *(ro\n" + kEnd;
  const auto parser = parserOf(text);
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(parser->exportWithPath("/srv/a"), nullptr);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + text.substr(kBegin.size()));
}

TEST_F(ExportsFileParsing, RecordWithoutLineIsNotWritten) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a", "two words"));
  parser->addOrReplaceExport(exportTo("", "host"));
  parser->addOrReplaceExport(nullptr);
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(written(*parser), kBegin + kEnd + "# mine\n");
}

TEST_F(ExportsFileParsing, BackslashEndingCommentHidesNoExport) {
  const auto parser =
      parserOf(kBegin + "# old \\\n/srv/a *(rw)\n/srv/b *(ro) # was rw \\\n/srv/c *(ro)\n" + kEnd);
  for (const char* path : {"/srv/a", "/srv/b", "/srv/c"}) {
    EXPECT_NE(parser->exportWithPath(path), nullptr) << path;
  }
}

TEST_F(ExportsFileParsing, BoundaryCommentsSurroundTheSpanOfExports) {
  const auto parser = parserOf("# top\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "# between\n" +
                               kBegin + "/srv/b *(ro)\n" + kEnd + "# bottom\n");
  parser->addManagedExportsBoundaryComments();
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(parser->description(), "(\n    # top\n    " + kBegin +
                                       "    /srv/a *(ro)\n    # between\n    /srv/b *(ro)\n    " +
                                       kEnd + "    # bottom\n)");
}

TEST_F(ExportsFileParsing, BoundaryCommentsNeedAnExport) {
  const auto parser = parserOf("# mine\n");
  parser->addManagedExportsBoundaryComments();
  EXPECT_EQ(parser->description(), "(\n    # mine\n)");
}

TEST_F(ExportsFileParsing, WritingLeavesTheLinesAsTheyWere) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  const std::string before = parser->description();
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(parser->description(), before);
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
}

TEST_F(ExportsFileParsing, AFileOfWhitespaceIsRewrittenAsEmpty) {
  EXPECT_EQ(rewritten(" \n\t\r\n \v\f"), "");
  EXPECT_NE(files_.find(kFile), nullptr);
}

TEST_F(ExportsFileParsing, NothingToWriteAndNoFileCreatesNone) {
  const auto parser = NFSExportParser::initWithFile(kFile);
  EXPECT_FALSE(parser->writeFile());
  EXPECT_EQ(files_.find(kFile), nullptr);
}

TEST_F(ExportsFileParsing, AMissingFileIsCreatedForAnExport) {
  const auto parser = NFSExportParser::initWithFile(kFile);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/b *(ro)\n/srv/a *(ro)\n" + kEnd);
  EXPECT_EQ(files_.find(kCopy), nullptr) << "there was nothing to keep";
}

TEST_F(ExportsFileParsing, WriteIgnoresFileChangesSinceRead) {
  const auto parser = parserOf("# one\n");
  files_.setFile(kFile, "# two\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd + "# one\n");
}

}  // namespace

// Entries of exports(5) that go on over several lines.
namespace {

using MultiLineExportsEntries = ParserTest;

TEST(ExportsEntry, EndsWhereTheServerEndsIt) {
  for (const std::string entry :
       {"/a b(rw)\n", "/a b(rw) \\\n c(ro)\n", "/a b(rw) \\\n\n", "/a b(rw) \\\n \t\n",
        "/a b(rw) \\\n\\\n\\\nc(ro)\n", "/a \\\n# c \\\n", "# c \\\n", "/a b(rw) # c \\\n",
        "\"/a\nb\" c\n", "\"/a \\\n b\" c\n", "/a b(rw) \\\r\n", "/a#\\\nb\n", "\\\n/a b\n",
        "/a b(rw) \v/c d(rw) \\\n e(rw)\n", "/a b(rw) \\\n\r\n", "/a \"\" \\\n/b c\n"}) {
    EXPECT_EQ(exportsEntryLength(entry + "/next *\n"), entry.size()) << entry;
    EXPECT_EQ(exportsEntryLength(entry), entry.size()) << entry;
    EXPECT_EQ(exportsEntryLength(entry.substr(0, entry.size() - 1)), entry.size() - 1) << entry;
  }
}

TEST(ExportsEntry, WordRefusedByServerEndsWithItsLine) {
  const std::string word(600, 'w');
  EXPECT_EQ(exportsEntryLength("/a b \\\n" + word + " \\\n/c d\n"), 7U + 600U + 3U);
  const std::string open = "/a \"b\n";
  EXPECT_EQ(exportsEntryLength(open + std::string(700, '\n') + "\"\n"), open.size());
}

TEST_F(MultiLineExportsEntries, FormOneLineIncludingTerminatingBlankLine) {
  const std::string text = "/tmp a(rw) \\\n\n/usr c(rw)\n";
  EXPECT_EQ(rewritten(text), text);
  EXPECT_EQ(rewritten("/tmp a(rw) \\\n\t b(ro) \\\n   \n\n\n  /usr c(rw)\n"),
            "/tmp a(rw) \\\n\t b(ro) \\\n   \n/usr c(rw)\n");
  const auto parser = parserOf(text);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd + text);
}

TEST_F(MultiLineExportsEntries, AreFoundReplacedAndRemovedWholeInsideBlock) {
  const std::string before = kBegin + "/srv/b *(ro)\n";
  const std::string entry = "/srv/a one(ro) \\\n  two(rw) \\\n\n";
  const std::string behind = "/srv/c *(rw) # \\\n" + kEnd + "# mine\n";
  const auto parser = parserOf(before + entry + behind);
  EXPECT_EQ(parser->exportCount(), 3U);
  ASSERT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/a")->clients().size(), 2U);
  EXPECT_EQ(written(*parser), before + entry + behind);
  parser->removeExportWithPath("/srv/b");
  EXPECT_EQ(written(*parser), kBegin + entry + behind);
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(written(*parser), kBegin + behind);
}

TEST_F(MultiLineExportsEntries, AMarkerEndsThem) {
  const auto parser =
      parserOf("/tmp a(rw) \\\n" + kBegin + "/srv/a b(ro) \\\n" + kEnd + "/usr c(rw)\n");
  EXPECT_EQ(parser->exportCount(), 1U);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(written(*parser),
            "/tmp a(rw) \\\n" + kBegin + "/srv/a b(ro) \\\n" + kEnd + "/usr c(rw)\n");
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(written(*parser), "/tmp a(rw) \\\n\n/usr c(rw)\n") << "something must end the first";
}

TEST_F(MultiLineExportsEntries, TheEndOfTheFileEndsThem) {
  EXPECT_EQ(rewritten("/tmp a(rw) \\\n"), "/tmp a(rw) \\\n");
  const auto parser = parserOf(kBegin + "/srv/a b(ro) \\\n");
  EXPECT_EQ(written(*parser), kBegin + "/srv/a b(ro) \\\n" + kEnd);
}

TEST_F(MultiLineExportsEntries, LinesThatEndTheServersReadingStay) {
  const std::string text = "/tmp a(rw)\r\n\r\n/usr c(rw)\r\n";
  EXPECT_EQ(rewritten(text), text);
  EXPECT_EQ(rewritten("/tmp a(rw)\n \v/usr c(rw)\n"), "/tmp a(rw)\n\v/usr c(rw)\n");
  EXPECT_EQ(rewritten("/tmp a(rw)\r\n\r\n"), "/tmp a(rw)\r\n") << "nothing stands behind it";
}

}  // namespace

}  // namespace paddock
