// Entries of exports(5) that go on over several lines.
#include <gtest/gtest.h>

#include "exports/exports_entry.h"
#include "support/exports_parser_test_support.h"

namespace paddock {
namespace {

using NFSExportParserEntriesTest = ParserTest;

TEST(ExportsEntryTest, EndsWhereTheServerEndsIt) {
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

TEST(ExportsEntryTest, AWordThatTheServerRefusesEndsWithItsLine) {
  const std::string word(600, 'w');
  EXPECT_EQ(exportsEntryLength("/a b \\\n" + word + " \\\n/c d\n"), 7U + 600U + 3U);
  const std::string open = "/a \"b\n";
  EXPECT_EQ(exportsEntryLength(open + std::string(700, '\n') + "\"\n"), open.size());
}

TEST_F(NFSExportParserEntriesTest, AreOneLineEachWithTheBlankLineThatEndsThem) {
  const std::string text = "/tmp a(rw) \\\n\n/usr c(rw)\n";
  EXPECT_EQ(rewritten(text), text);
  EXPECT_EQ(rewritten("/tmp a(rw) \\\n\t b(ro) \\\n   \n\n\n  /usr c(rw)\n"),
            "/tmp a(rw) \\\n\t b(ro) \\\n   \n/usr c(rw)\n");
  const auto parser = parserOf(text);
  parser->addOrReplaceExport(exportTo("/srv/a"));
  EXPECT_EQ(written(*parser), kBegin + "/srv/a *(ro)\n" + kEnd + text);
}

TEST_F(NFSExportParserEntriesTest, InsideTheBlockAreFoundReplacedAndRemovedAsAWhole) {
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

TEST_F(NFSExportParserEntriesTest, AMarkerEndsThem) {
  const auto parser =
      parserOf("/tmp a(rw) \\\n" + kBegin + "/srv/a b(ro) \\\n" + kEnd + "/usr c(rw)\n");
  EXPECT_EQ(parser->exportCount(), 1U);
  EXPECT_NE(parser->exportWithPath("/srv/a"), nullptr);
  EXPECT_EQ(written(*parser),
            "/tmp a(rw) \\\n" + kBegin + "/srv/a b(ro) \\\n" + kEnd + "/usr c(rw)\n");
  parser->removeExportWithPath("/srv/a");
  EXPECT_EQ(written(*parser), "/tmp a(rw) \\\n\n/usr c(rw)\n") << "something must end the first";
}

TEST_F(NFSExportParserEntriesTest, TheEndOfTheFileEndsThem) {
  EXPECT_EQ(rewritten("/tmp a(rw) \\\n"), "/tmp a(rw) \\\n");
  const auto parser = parserOf(kBegin + "/srv/a b(ro) \\\n");
  EXPECT_EQ(written(*parser), kBegin + "/srv/a b(ro) \\\n" + kEnd);
}

TEST_F(NFSExportParserEntriesTest, LinesThatEndTheServersReadingStay) {
  const std::string text = "/tmp a(rw)\r\n\r\n/usr c(rw)\r\n";
  EXPECT_EQ(rewritten(text), text);
  EXPECT_EQ(rewritten("/tmp a(rw)\n \v/usr c(rw)\n"), "/tmp a(rw)\n\v/usr c(rw)\n");
  EXPECT_EQ(rewritten("/tmp a(rw)\r\n\r\n"), "/tmp a(rw)\r\n") << "nothing stands behind it";
}

}  // namespace
}  // namespace paddock
