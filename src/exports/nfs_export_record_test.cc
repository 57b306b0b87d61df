#include "exports/nfs_export_record.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

Dictionary client(const std::string& host, Array options = {}) {
  return {{"host", host}, {"options", std::move(options)}};
}

Dictionary exportSettings(const std::string& path) {
  return {{"path", path}, {"clients", Array{client("10.0.0.1", {"rw", "sync"}), client("*")}}};
}

std::string writtenAs(std::string_view line) {
  return NFSExportRecord::recordWithNfsExportFileLine(line)->nfsExportFileLine();
}

TEST(ExportRecord, ReadsALine) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine("/srv/a 10.0.0.1(rw,sync) *\n");
  EXPECT_EQ(record->path(), "/srv/a");
  EXPECT_EQ(record->identifier(), "/srv/a");
  EXPECT_FALSE(record->isDeleted());
  EXPECT_EQ(record->dictionary(), exportSettings("/srv/a"));
}

TEST(ExportRecord, UnchangedLineIsWrittenAsRead) {
  for (const char* line :
       {"/srv/a  10.0.0.1(rw)\t# mine\n", "\"/srv/a b\" *(ro)\n", "/srv/a\n",
        "/srv/a -ro b c(rw)\n", "/srv/a b(ro)\r\n", "/srv/a b(future_option)\n"}) {
    EXPECT_EQ(writtenAs(line), line);
  }
}

TEST(ExportRecord, MergingWhatIsThereAlreadyChangesNothing) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine("/srv/a   b(rw) # mine\n");
  record->addAttributesFromDictionary(record->dictionary());
  EXPECT_EQ(record->nfsExportFileLine(), "/srv/a   b(rw) # mine\n");
}

TEST(ExportRecord, AChangedLineIsWrittenInCanonicalForm) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine("\"/srv/a b\"   c(rw) # mine\n");
  record->addAttributesFromDictionary({{"clients", Array{client("d", {"ro"})}}});
  EXPECT_EQ(record->nfsExportFileLine(), "/srv/a\\040b d(ro)\n");
}

TEST(ExportRecord, UnknownFileOptionBlocksRewrite) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine("/srv/a b(future_option)\n");
  EXPECT_TRUE(record->isValid());
  record->setPath("/srv/b");
  EXPECT_FALSE(record->isValid());
  EXPECT_EQ(record->nfsExportFileLine(), "");
}

TEST(ExportRecord, NonExportLineIsKeptByteForByte) {
  for (const char* line : {"# a comment\n", "# old \\\n", "b(ro)\n", "/srv/a b(ro\n", "\"/srv\n",
                           "###  [  begin\n", "- \xC3\xA9 \\040 \r\n"}) {
    const auto record = NFSExportRecord::recordWithNfsExportFileLine(line);
    EXPECT_EQ(record->nfsExportFileLine(), line);
    EXPECT_EQ(record->path(), "");
    EXPECT_FALSE(record->isValid());
    EXPECT_EQ(record->dictionary(),
              (Dictionary{{"line", std::string(line, std::string(line).size() - 1)}}));
  }
}

TEST(ExportRecord, AnEntryOfSeveralLinesIsOneLine) {
  const std::string text = "/srv/a b(ro) \\\n  c(rw) \\\n\n";
  const auto record = NFSExportRecord::recordWithNfsExportFileLine(text);
  EXPECT_EQ(record->nfsExportFileLine(), text);
  EXPECT_EQ(record->path(), "/srv/a");
  EXPECT_EQ(record->clients().size(), 2U);
  record->setClients({{"d", {"ro"}}});
  EXPECT_EQ(record->nfsExportFileLine(), "/srv/a d(ro)\n");
}

TEST(ExportRecord, ALineOfSeveralEntriesIsNotWritten) {
  const auto record =
      NFSExportRecord::recordWithDictionary({{"line", "# mine\n/srv/secret *(rw)"}});
  EXPECT_EQ(record->nfsExportFileLine(), "");
  EXPECT_EQ(record->path(), "");
}

TEST(ExportRecord, TheDictionaryFormIsAnExactInverse) {
  const std::vector<Dictionary> forms = {
      {},
      {{"path", ""}},
      {{"path", "/srv/\xC3\xA9"}},
      {{"clients", Array{}}},
      {{"path", "/srv/" + std::string(10'000, 'p')}, {"clients", Array{client("")}}},
      {{"isDeleted", false}},
      {{"path", "/srv/a"}, {"isDeleted", true}},
      {{"line", "# a comment"}},
      {{"line", "# a comment"}, {"isDeleted", true}},
      exportSettings("/srv/a b"),
  };
  for (const Dictionary& form : forms) {
    EXPECT_EQ(NFSExportRecord::recordWithDictionary(form)->dictionary(), form);
  }
}

TEST(ExportRecord, UnsetPropertiesAreAbsentFromDictionary) {
  EXPECT_TRUE(NFSExportRecord().dictionary().empty());
  EXPECT_EQ(NFSExportRecord::recordWithDictionary({{"path", "/srv/a"}})->dictionary(),
            (Dictionary{{"path", "/srv/a"}}));
}

TEST(ExportRecord, APartialDictionaryChangesOnlyWhatItNames) {
  const auto record = NFSExportRecord::recordWithDictionary(exportSettings("/srv/a"));
  record->addAttributesFromDictionary({{"isDeleted", true}});
  EXPECT_TRUE(record->isDeleted());
  EXPECT_EQ(record->path(), "/srv/a");
  EXPECT_EQ(record->clients().size(), 2U);
  record->addAttributesFromDictionary({{"path", "/srv/b"}});
  EXPECT_EQ(record->path(), "/srv/b");
  EXPECT_EQ(record->clients().size(), 2U);
}

TEST(ExportRecord, ValuesOfTheWrongTypeReadAsAbsent) {
  const auto record = NFSExportRecord::recordWithDictionary(exportSettings("/srv/a"));
  const Dictionary before = record->dictionary();
  record->addAttributesFromDictionary(
      {{"path", 5}, {"clients", "everybody"}, {"isDeleted", Array{}}, {"line", Dictionary{}}});
  EXPECT_EQ(record->dictionary(), before);
}

TEST(ExportRecord, WronglyTypedClientOrOptionIsNotDropped) {
  for (const Value& broken :
       {Value(5), Value(Dictionary{}), Value(client("a", {5})), Value(Dictionary{{"host", 5}})}) {
    const auto record = NFSExportRecord::recordWithDictionary(
        {{"path", "/srv/a"}, {"clients", Array{client("b"), broken}}});
    EXPECT_FALSE(record->isValid());
    EXPECT_EQ(record->nfsExportFileLine(), "");
  }
}

TEST(ExportRecord, ClientsWithoutOptionsHaveNone) {
  const auto record = NFSExportRecord::recordWithDictionary(
      {{"path", "/srv/a"}, {"clients", Array{Dictionary{{"host", "b"}}}}});
  EXPECT_EQ(record->nfsExportFileLine(), "/srv/a b\n");
}

TEST(ExportRecord, AnotherPathKeepsTheClientsOfTheLine) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine("/srv/a  -rw b c(ro)");
  record->setPath("/srv/z");
  EXPECT_EQ(record->nfsExportFileLine(), "/srv/z b(rw) c(rw,ro)\n");
}

TEST(ExportRecord, ValidityGivesItsReason) {
  EXPECT_FALSE(NFSExportRecord::recordWithDictionary(exportSettings("/srv/a"))->invalidReason());
  EXPECT_EQ(NFSExportRecord::recordWithDictionary({{"path", "/srv/a"}})->invalidReason(),
            "the export has no client");
  EXPECT_EQ(NFSExportRecord::recordWithDictionary({{"line", "/srv/a b(ro"}})->invalidReason(),
            "the line is no export");
}

TEST(ExportRecord, OptionsThatAreNoArrayMakeItInvalid) {
  for (const Value& options : {Value("rw,sec=krb5p"), Value(1), Value(Dictionary())}) {
    const Dictionary client{{"host", "*"}, {"options", options}};
    EXPECT_TRUE(
        NFSExportRecord::recordWithDictionary({{"path", "/srv/a"}, {"clients", Array{client}}})
            ->invalidReason());
  }
}

TEST(ExportRecord, SettledLineKeepsTextAndStaysMutable) {
  const auto record = NFSExportRecord::recordWithDictionary(exportSettings("/srv/a"));
  const std::string line = record->nfsExportFileLine();
  const Dictionary form = record->dictionary();
  record->settleLine();
  EXPECT_EQ(record->nfsExportFileLine(), line);
  EXPECT_EQ(record->dictionary(), form);
  record->setClients({{"*", {"ro", "insecure"}}});
  EXPECT_EQ(record->nfsExportFileLine(), "/srv/a *(ro,insecure)\n");
}

TEST(ExportRecord, AnInvalidRecordIsNotSettled) {
  const auto record = NFSExportRecord::recordWithDictionary({{"path", "/srv/a"}});
  record->settleLine();
  EXPECT_TRUE(record->invalidReason());
}

TEST(ExportRecord, DictionaryLineWithTwoLinesIsInvalid) {
  const auto record = NFSExportRecord::recordWithDictionary({{"line", "# a\n/etc *(rw)"}});
  EXPECT_EQ(record->nfsExportFileLine(), "");
  EXPECT_FALSE(record->isValid());
}

TEST(ExportRecord, AnExportTakesNoLine) {
  const auto record =
      NFSExportRecord::recordWithDictionary({{"path", "/srv/a"}, {"line", "/srv/b *(rw)"}});
  EXPECT_EQ(record->dictionary(), (Dictionary{{"path", "/srv/a"}}));
}

TEST(ExportRecord, SettingPathDiscardsKeptLine) {
  const auto record = NFSExportRecord::recordWithNfsExportFileLine("# a comment\n");
  record->setPath("/srv/a");
  EXPECT_EQ(record->dictionary(), (Dictionary{{"path", "/srv/a"}}));
}

}  // namespace
}  // namespace paddock
