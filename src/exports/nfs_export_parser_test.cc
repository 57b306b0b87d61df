#include "exports/nfs_export_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/exports_parser_test_support.h"

namespace paddock {
namespace {

using NFSExportParserTest = ParserTest;

TEST_F(NFSExportParserTest, TheMarkersAreWrittenByteForByte) {
  EXPECT_STREQ(kBeginMarker, "###  [  Begin Keelhouse managed exports.  Do Not Edit.");
  EXPECT_STREQ(kEndMarker, "###  ]  End Keelhouse managed exports.");
}

TEST_F(NFSExportParserTest, AParserOfNoFileHasNoLines) {
  NFSExportParser parser;
  EXPECT_EQ(parser.file(), "");
  EXPECT_EQ(parser.exportCount(), 0U);
  EXPECT_EQ(parser.description(), "(\n)");
  EXPECT_FALSE(parser.readFile());
  EXPECT_FALSE(parser.writeFile());
  parser.addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_FALSE(parser.writeFile());
}

TEST_F(NFSExportParserTest, KnowsItsFileAndReadsItAtOnce) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_EQ(parser->file(), kFile);
  EXPECT_EQ(parser->exportCount(), 1U);
}

TEST_F(NFSExportParserTest, AnEmptyFileReadsAsNoLines) {
  const auto parser = parserOf("/srv/a *(ro)\n");
  files_.setFile(kFile, "");
  EXPECT_TRUE(parser->readFile());
  EXPECT_EQ(parser->description(), "(\n)");
}

TEST_F(NFSExportParserTest, AMissingFileKeepsThePreviousLines) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  const std::string before = parser->description();
  files_.remove(kFile);
  EXPECT_FALSE(parser->readFile());
  EXPECT_EQ(parser->description(), before);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
}

TEST_F(NFSExportParserTest, AFileThatCannotBeReadKeepsThePreviousLines) {
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

TEST_F(NFSExportParserTest, AnExceptionWhileReadingIsAFailedRead) {
  const auto parser = parserOf("# mine\n");
  ThrowingTextFiles throwing;
  const ServicesGuard guard(servicesOn(&throwing));
  EXPECT_FALSE(parser->readFile());
}

TEST_F(NFSExportParserTest, HandWrittenLinesComeBackWithoutBlankLinesAndIndentation) {
  EXPECT_EQ(rewritten("\n\n# one\n\n  \t/srv/a  *(ro) \t\n \n\t# two"),
            "# one\n/srv/a  *(ro) \t\n# two\n");
}

TEST_F(NFSExportParserTest, HandWrittenExportsAreNoExports) {
  const auto parser = parserOf("/srv/a *(ro)\n");
  EXPECT_EQ(parser->exportCount(), 0U);
  EXPECT_EQ(parser->exportWithPath("/srv/a"), nullptr);
}

TEST_F(NFSExportParserTest, ACarriageReturnStaysPartOfItsLine) {
  EXPECT_EQ(rewritten("# one\r\n\n/srv/a *(ro)\r\n"), "# one\r\n/srv/a *(ro)\r\n");
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\r\n" + kEnd);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\r\n" + kEnd);
}

TEST_F(NFSExportParserTest, EveryLineInsideTheBlockIsARecord) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n# comment\n\n/srv/b *(rw)\n" +
                               kEnd + "# too\n");
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_EQ(written(*parser),
            "# mine\n" + kBegin + "/srv/a *(ro)\n# comment\n/srv/b *(rw)\n" + kEnd + "# too\n");
}

TEST_F(NFSExportParserTest, AnIndentedMarkerIsRecognised) {
  const auto parser = parserOf("  " + kBegin + "/srv/a *(ro)\n\t" + kEnd + "/srv/b *\n");
  EXPECT_EQ(parser->exportCount(), 1U);
}

TEST_F(NFSExportParserTest, TextBehindAMarkerIsLost) {
  EXPECT_EQ(
      rewritten(std::string(kBeginMarker) + " really\n/srv/a *(ro)\n" + kEndMarker + "!\n# mine\n"),
      kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
}

TEST_F(NFSExportParserTest, AMarkerThatDiffersByABlankIsAnOrdinaryLine) {
  const auto parser = parserOf("### [  Begin Keelhouse managed exports.  Do Not Edit.\n/srv/a *\n");
  EXPECT_EQ(parser->exportCount(), 0U);
}

TEST_F(NFSExportParserTest, WithoutAnEndMarkerTheBlockGoesToTheEnd) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n# mine\n/srv/b *(rw)\n");
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n# mine\n/srv/b *(rw)\n" + kEnd);
}

TEST_F(NFSExportParserTest, AnEndMarkerAloneIsDropped) {
  EXPECT_EQ(rewritten("# mine\n" + kEnd + "/srv/a *\n"), "# mine\n/srv/a *\n");
}

TEST_F(NFSExportParserTest, TwoBlocksBecomeOneAroundTheLinesBetweenThem) {
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

TEST_F(NFSExportParserTest, TheFirstExportStartsTheBlockAtTheTopOfTheFile) {
  const auto parser = parserOf("# mine\n/mine *(rw)\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n/mine *(rw)\n");
}

TEST_F(NFSExportParserTest, ASecondExportGoesToTheTopOfTheBlock) {
  const auto parser = parserOf("# top\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "# bottom\n");
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_EQ(written(*parser),
            "# top\n" + kBegin + "/srv/b *(ro)\n/srv/a *(ro)\n" + kEnd + "# bottom\n");
}

TEST_F(NFSExportParserTest, AReplacedExportMovesToTheTopOfTheBlock) {
  const auto parser =
      parserOf("# top\n" + kBegin + "/srv/a *(ro)\n/srv/b *(ro)\n/srv/c *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/c", "host"));
  EXPECT_EQ(parser->exportCount(), 3U);
  EXPECT_EQ(written(*parser),
            "# top\n" + kBegin + "/srv/c host(ro)\n/srv/a *(ro)\n/srv/b *(ro)\n" + kEnd);
}

TEST_F(NFSExportParserTest, ReplacingTheOnlyExportMovesTheBlockToTheTopOfTheFile) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/a", "host"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a host(ro)\n" + kEnd + "# mine\n");
}

TEST_F(NFSExportParserTest, AnExistingExportIsChangedInPlaceAndPutBack) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n/srv/b *(ro) # b\n" + kEnd);
  const auto existing = parser->exportWithPath("/srv/b");
  existing->addAttributesFromDictionary(exportTo("/srv/b", "host")->dictionary());
  parser->addOrReplaceExport(existing);
  EXPECT_EQ(parser->exportWithPath("/srv/b"), existing);
  EXPECT_EQ(written(*parser), kBegin + "/srv/b host(ro)\n/srv/a *(ro)\n" + kEnd);
}

TEST_F(NFSExportParserTest, RemovingTheLastExportRemovesTheMarkers) {
  const auto parser = parserOf("# mine\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "# too\n");
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(parser->exportCount(), 0U);
  EXPECT_EQ(written(*parser), "# mine\n# too\n");
}

TEST_F(NFSExportParserTest, RemovingWhatIsNotThereDoesNothing) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  parser->removeExportWithPath("/srv/b");
  parser->removeExportWithPath("");
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd);
}

TEST_F(NFSExportParserTest, AllExportsOfOnePathAreRemovedTogether) {
  const auto parser = parserOf(kBegin + "/srv/a one(ro)\n/srv/b *(ro)\n/srv/a two(rw)\n" + kEnd);
  EXPECT_EQ(parser->exportWithPath("/srv/a")->clients().front().host, "one");
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(written(*parser), kBegin + "/srv/b *(ro)\n" + kEnd);
}

TEST_F(NFSExportParserTest, LookupsAreExact) {
  const auto parser = parserOf(kBegin + "/srv/a *(ro)\n" + kEnd);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/a/"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv/A"), nullptr);
  EXPECT_EQ(parser->exportWithPath("/srv"), nullptr);
  EXPECT_EQ(parser->exportWithPath(""), nullptr);
}

TEST_F(NFSExportParserTest, APathIsFoundByItsDecodedText) {
  const auto parser = parserOf(kBegin + "/srv/a\\040b *(ro)\n\"/srv/c d\" *(ro)\n" + kEnd);
  EXPECT_NE(parser->exportWithPath("/srv/a b"), nullptr);
  EXPECT_NE(parser->exportWithPath("/srv/c d"), nullptr);
}

TEST_F(NFSExportParserTest, LinesOfTheBlockThatAreNoExportsAreKeptAndNeverFound) {
  const std::string text = kBegin + "# comment\n/srv/a *(ro\n" + kEnd;
  const auto parser = parserOf(text);
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(parser->exportWithPath("/srv/a"), nullptr);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + text.substr(kBegin.size()));
}

TEST_F(NFSExportParserTest, ARecordThatIsNoLineIsNotWritten) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a", "two words"));
  parser->addOrReplaceExport(exportTo("", "host"));
  parser->addOrReplaceExport(nullptr);
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(written(*parser), kBegin + kEnd + "# mine\n");
}

TEST_F(NFSExportParserTest, ABackslashAtACommentsEndHidesNoExport) {
  const auto parser =
      parserOf(kBegin + "# old \\\n/srv/a *(rw)\n/srv/b *(ro) # was rw \\\n/srv/c *(ro)\n" + kEnd);
  for (const char* path : {"/srv/a", "/srv/b", "/srv/c"}) {
    EXPECT_NE(parser->exportWithPath(path), nullptr) << path;
  }
}

TEST_F(NFSExportParserTest, BoundaryCommentsSurroundTheSpanOfExports) {
  const auto parser = parserOf("# top\n" + kBegin + "/srv/a *(ro)\n" + kEnd + "# between\n" +
                               kBegin + "/srv/b *(ro)\n" + kEnd + "# bottom\n");
  parser->addManagedExportsBoundaryComments();
  EXPECT_EQ(parser->exportCount(), 2U);
  EXPECT_EQ(parser->description(), "(\n    # top\n    " + kBegin +
                                       "    /srv/a *(ro)\n    # between\n    /srv/b *(ro)\n    " +
                                       kEnd + "    # bottom\n)");
}

TEST_F(NFSExportParserTest, BoundaryCommentsNeedAnExport) {
  const auto parser = parserOf("# mine\n");
  parser->addManagedExportsBoundaryComments();
  EXPECT_EQ(parser->description(), "(\n    # mine\n)");
}

TEST_F(NFSExportParserTest, WritingLeavesTheLinesAsTheyWere) {
  const auto parser = parserOf("# mine\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  const std::string before = parser->description();
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(parser->description(), before);
  EXPECT_TRUE(parser->writeFile());
  EXPECT_EQ(files_.contents(kFile), kBegin + "/srv/a *(ro)\n" + kEnd + "# mine\n");
}

TEST_F(NFSExportParserTest, AFileOfWhitespaceIsRewrittenAsEmpty) {
  EXPECT_EQ(rewritten(" \n\t\r\n \v\f"), "");
  EXPECT_NE(files_.find(kFile), nullptr);
}

TEST_F(NFSExportParserTest, NothingToWriteAndNoFileCreatesNone) {
  const auto parser = NFSExportParser::initWithFile(kFile);
  EXPECT_FALSE(parser->writeFile());
  EXPECT_EQ(files_.find(kFile), nullptr);
}

TEST_F(NFSExportParserTest, AMissingFileIsCreatedForAnExport) {
  const auto parser = NFSExportParser::initWithFile(kFile);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd);
  parser->addOrReplaceExport(exportTo("/srv/b"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/b *(ro)\n/srv/a *(ro)\n" + kEnd);
  EXPECT_EQ(files_.find(kCopy), nullptr) << "there was nothing to keep";
}

TEST_F(NFSExportParserTest, ChangesOfTheFileBetweenReadAndWriteAreNotRead) {
  const auto parser = parserOf("# one\n");
  files_.setFile(kFile, "# two\n");
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd + "# one\n");
}

}  // namespace
}  // namespace paddock
