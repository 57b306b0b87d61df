#include "store/share_point_record.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "store/directory_access.h"

namespace paddock {
namespace {

struct TextProperty {
  const char* key;
  const char* attribute;  // null: not kept in the directory
  const std::optional<std::string>& (SharePointRecord::*get)() const;
};

const std::vector<TextProperty>& textProperties() {
  static const std::vector<TextProperty> all = {
      {"path", "dsAttrTypeNative:directory_path", &SharePointRecord::path},
      {"name", "dsAttrTypeStandard:RecordName", &SharePointRecord::name},
      {"nameOverVSP", "dsAttrTypeNative:vsp_name", &SharePointRecord::nameOverVSP},
      {"nameOverSMB", "dsAttrTypeNative:smb_name", &SharePointRecord::nameOverSMB},
      {"nameOverFTP", "dsAttrTypeNative:ftp_name", &SharePointRecord::nameOverFTP},
      {"backstowBackupUUID", "dsAttrTypeNative:backstowBackupUUID",
       &SharePointRecord::backstowBackupUUID},
      {"automountMountPath", "dsAttrTypeNative:amt_static_mount_path",
       &SharePointRecord::automountMountPath},
      {"automountDSPath", "dsAttrTypeNative:amt_ds_path", &SharePointRecord::automountDSPath},
      {"mountedOnPath", nullptr, &SharePointRecord::mountedOnPath},
  };
  return all;
}

struct FlagProperty {
  const char* key;
  const char* attribute;
  bool (SharePointRecord::*get)() const;
};

const std::vector<FlagProperty>& flagProperties() {
  static const std::vector<FlagProperty> all = {
      {"isSharedOverVSP", "dsAttrTypeNative:vsp_shared", &SharePointRecord::isSharedOverVSP},
      {"isBackstowBackup", "dsAttrTypeNative:backstowBackup", &SharePointRecord::isBackstowBackup},
      {"isAutomounted", "dsAttrTypeNative:amt_is_automounted", &SharePointRecord::isAutomounted},
      {"isIndexingEnabled", nullptr, &SharePointRecord::isIndexingEnabled},
      {"isDeleted", nullptr, &SharePointRecord::isDeleted},
  };
  return all;
}

constexpr const char* kFileSystemAttribute = "dsAttrTypeNative:amt_file_system";
constexpr const char* kFileSystemKey = "automountFileSystemType";

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

const std::vector<std::string>& hostileTexts() {
  static const std::vector<std::string> all = {
      "",
      " ",
      "0",
      "1",
      "NO",
      "true",
      "-1",
      "/srv/a b",
      "line\nbreak\ttab",
      "\"quoted\" \\ # *(rw)",
      "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
      "e\xCC\x81",  // the same letter, decomposed: nothing is normalised
      std::string(10 * 1024UL, 'x'),
      repeated("\xC3\x9F", 5 * 1024),
  };
  return all;
}

// The path of a form's export; nothing when it has none.
std::optional<std::string> exportPath(const Dictionary& form) {
  const Dictionary* exported = form.dictionary("nfsExportRecord");
  const std::string* path = exported != nullptr ? exported->string("path") : nullptr;
  return path != nullptr ? std::optional(*path) : std::nullopt;
}

// A directory form as the directory answers it: every attribute has an array of values.
Dictionary asAnswered(const Dictionary& form) {
  Dictionary answer;
  for (const auto& entry : form) {
    answer.set(entry.key, entry.value.array() != nullptr ? entry.value : Value(Array{entry.value}));
  }
  return answer;
}

Dictionary throughDictionary(const Dictionary& form) {
  return SharePointRecord::recordWithDictionary(form).dictionary();
}

Dictionary throughDirectory(const Dictionary& form) {
  const Dictionary directoryForm = SharePointRecord::recordWithDictionary(form).dsDictionary();
  return SharePointRecord::recordWithDSDictionary(asAnswered(directoryForm)).dictionary();
}

TEST(SharePointRecordForms, AnEmptyRecordHasNothingInEitherForm) {
  const SharePointRecord record = SharePointRecord::record();
  EXPECT_TRUE(record.dictionary().empty());
  EXPECT_TRUE(record.dsDictionary().empty());
  EXPECT_EQ(record.identifier(), "");
  EXPECT_EQ(record.nfsExportRecord(), nullptr);
}

TEST(SharePointRecordForms, AnEmptyDictionaryMakesAnEmptyRecord) {
  EXPECT_TRUE(throughDictionary({}).empty());
  EXPECT_TRUE(SharePointRecord::recordWithDSDictionary({}).dictionary().empty());
}

TEST(SharePointRecordForms, UnsetFlagsAndNumbersReadFalseAndZero) {
  const SharePointRecord record = SharePointRecord::record();
  for (const FlagProperty& property : flagProperties()) {
    EXPECT_FALSE((record.*property.get)()) << property.key;
  }
  EXPECT_EQ(record.automountFileSystemType(), 0);
}

TEST(SharePointRecordForms, EachTextPropertyIsReadFromItsKey) {
  for (const TextProperty& property : textProperties()) {
    for (const std::string& text : hostileTexts()) {
      const auto record = SharePointRecord::recordWithDictionary({{property.key, text}});
      EXPECT_EQ((record.*property.get)(), text) << property.key;
      EXPECT_EQ(record.dictionary(), (Dictionary{{property.key, text}})) << property.key;
    }
  }
}

TEST(SharePointRecordForms, EachTextPropertyIsReadFromItsAttribute) {
  for (const TextProperty& property : textProperties()) {
    if (property.attribute == nullptr) continue;
    for (const std::string& text : hostileTexts()) {
      const auto record =
          SharePointRecord::recordWithDSDictionary({{property.attribute, Array{text}}});
      EXPECT_EQ((record.*property.get)(), text) << property.key;
      EXPECT_EQ(asAnswered(record.dsDictionary()), (Dictionary{{property.attribute, Array{text}}}))
          << property.key;
      EXPECT_EQ(record.dictionary(), (Dictionary{{property.key, text}})) << property.key;
    }
  }
}

TEST(SharePointRecordForms, EachFlagIsReadFromItsKey) {
  for (const FlagProperty& property : flagProperties()) {
    for (const bool flag : {false, true}) {
      const auto record = SharePointRecord::recordWithDictionary({{property.key, flag}});
      EXPECT_EQ((record.*property.get)(), flag) << property.key;
      EXPECT_EQ(record.dictionary(), (Dictionary{{property.key, flag}})) << property.key;
    }
  }
}

TEST(SharePointRecordForms, DirectoryStoresFlagsAsOneAndZero) {
  for (const FlagProperty& property : flagProperties()) {
    if (property.attribute == nullptr) continue;
    EXPECT_EQ(
        asAnswered(SharePointRecord::recordWithDictionary({{property.key, true}}).dsDictionary()),
        (Dictionary{{property.attribute, Array{"1"}}}));
    EXPECT_EQ(
        asAnswered(SharePointRecord::recordWithDictionary({{property.key, false}}).dsDictionary()),
        (Dictionary{{property.attribute, Array{"0"}}}));
  }
}

TEST(SharePointRecordForms, DirectoryFlagsAcceptEverySpellingInAnyCase) {
  for (const FlagProperty& property : flagProperties()) {
    if (property.attribute == nullptr) continue;
    for (const char* text : {"1", "yes", "YES", "Yes", "true", "TRUE", "tRuE"}) {
      const auto record =
          SharePointRecord::recordWithDSDictionary({{property.attribute, Array{text}}});
      EXPECT_EQ(record.dictionary(), (Dictionary{{property.key, true}})) << text;
    }
    for (const char* text : {"0", "no", "NO", "No", "false", "FALSE", "fAlSe"}) {
      const auto record =
          SharePointRecord::recordWithDSDictionary({{property.attribute, Array{text}}});
      EXPECT_EQ(record.dictionary(), (Dictionary{{property.key, false}})) << text;
    }
  }
}

TEST(SharePointRecordForms, UnrecognisedFlagTextCountsAsUnset) {
  for (const FlagProperty& property : flagProperties()) {
    if (property.attribute == nullptr) continue;
    for (const char* text : {"", "2", "on", "off", " 1", "1 ", "y", "n", "yess", "01"}) {
      const auto record =
          SharePointRecord::recordWithDSDictionary({{property.attribute, Array{text}}});
      EXPECT_TRUE(record.dictionary().empty()) << "'" << text << "'";
    }
  }
}

TEST(SharePointRecordForms, RequestFlagsAcceptNumbersAndTexts) {
  for (const FlagProperty& property : flagProperties()) {
    EXPECT_EQ(throughDictionary({{property.key, 1}}), (Dictionary{{property.key, true}}));
    EXPECT_EQ(throughDictionary({{property.key, 0}}), (Dictionary{{property.key, false}}));
    EXPECT_EQ(throughDictionary({{property.key, "yes"}}), (Dictionary{{property.key, true}}));
    EXPECT_EQ(throughDictionary({{property.key, "False"}}), (Dictionary{{property.key, false}}));
  }
}

TEST(SharePointRecordForms, TheFileSystemTypeIsAnInteger) {
  for (const std::int64_t number :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-7},
        std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
    const Dictionary form{{kFileSystemKey, number}};
    EXPECT_EQ(SharePointRecord::recordWithDictionary(form).automountFileSystemType(), number);
    EXPECT_EQ(throughDictionary(form), form);
    EXPECT_EQ(throughDirectory(form), form);
    EXPECT_EQ(asAnswered(SharePointRecord::recordWithDictionary(form).dsDictionary()),
              (Dictionary{{kFileSystemAttribute, Array{std::to_string(number)}}}));
  }
}

TEST(SharePointRecordForms, NumericStringIsReadAsFileSystemType) {
  EXPECT_EQ(throughDictionary({{kFileSystemKey, "12"}}), (Dictionary{{kFileSystemKey, 12}}));
  EXPECT_EQ(throughDictionary({{kFileSystemKey, "-3"}}), (Dictionary{{kFileSystemKey, -3}}));
  EXPECT_EQ(throughDictionary({{kFileSystemKey, "0"}}), (Dictionary{{kFileSystemKey, 0}}));
}

TEST(SharePointRecordForms, BooleanFileSystemTypeIsZeroOrOne) {
  EXPECT_EQ(throughDictionary({{kFileSystemKey, true}}), (Dictionary{{kFileSystemKey, 1}}));
  EXPECT_EQ(throughDictionary({{kFileSystemKey, false}}), (Dictionary{{kFileSystemKey, 0}}));
}

TEST(SharePointRecordForms, NonNumberIsNoFileSystemType) {
  const std::vector<Value> others = {
      "",
      "nfs",
      "1.5",
      " 1",
      "1 ",
      "0x1",
      Data{},
      Array{1},
      Dictionary{{"a", 1}},
      "9223372036854775808",
      Value::fromUnsigned(std::numeric_limits<std::uint64_t>::max())};
  for (const Value& other : others) {
    EXPECT_TRUE(throughDictionary({{kFileSystemKey, other}}).empty());
  }
  for (const char* text : {"", "nfs", "1.5", " 1", "9223372036854775808"}) {
    EXPECT_TRUE(SharePointRecord::recordWithDSDictionary({{kFileSystemAttribute, Array{text}}})
                    .dictionary()
                    .empty())
        << "'" << text << "'";
  }
}

TEST(SharePointRecordForms, ValueOfWrongTypeIsNotSet) {
  const std::vector<Value> notTexts = {1, true, Data{{1, 2}}, Array{"a"}, Dictionary{{"a", "b"}}};
  for (const TextProperty& property : textProperties()) {
    for (const Value& value : notTexts) {
      const auto record = SharePointRecord::recordWithDictionary({{property.key, value}});
      EXPECT_FALSE((record.*property.get)()) << property.key;
      EXPECT_TRUE(record.dictionary().empty()) << property.key;
      EXPECT_TRUE(record.dsDictionary().empty()) << property.key;
    }
  }
  const std::vector<Value> notFlags = {"maybe", "", Data{{1}}, Array{true}, Dictionary{{"a", 1}}};
  for (const FlagProperty& property : flagProperties()) {
    for (const Value& value : notFlags) {
      EXPECT_TRUE(throughDictionary({{property.key, value}}).empty()) << property.key;
    }
  }
  for (const Value& value : std::vector<Value>{"x", 1, true, Array{Dictionary{}}, Data{}}) {
    const auto record = SharePointRecord::recordWithDictionary({{"nfsExportRecord", value}});
    EXPECT_EQ(record.nfsExportRecord(), nullptr);
    EXPECT_TRUE(record.dictionary().empty());
  }
}

TEST(SharePointRecordForms, ValueOfWrongTypeKeepsOtherValues) {
  EXPECT_EQ(throughDictionary({{"path", "/srv/a"}, {"name", 7}, {"isSharedOverVSP", Array{}}}),
            (Dictionary{{"path", "/srv/a"}}));
}

TEST(SharePointRecordForms, FirstOfSeveralAttributeValuesCounts) {
  const auto record =
      SharePointRecord::recordWithDSDictionary({{schema::kRecordName, Array{"first", "second"}},
                                                {schema::kVspShared, Array{"1", "0"}},
                                                {kFileSystemAttribute, Array{"3", "4"}}});
  EXPECT_EQ(record.dictionary(),
            (Dictionary{{"name", "first"}, {"isSharedOverVSP", true}, {kFileSystemKey, 3}}));
}

TEST(SharePointRecordForms, AnAttributeWithoutValuesIsNotSet) {
  const auto record = SharePointRecord::recordWithDSDictionary(
      {{schema::kRecordName, Array{}}, {schema::kVspShared, Array{}}});
  EXPECT_TRUE(record.dictionary().empty());
}

TEST(SharePointRecordForms, UnknownAttributesAreIgnored) {
  const auto record = SharePointRecord::recordWithDSDictionary(
      {{"dsAttrTypeStandard:RecordType", Array{"dsRecTypeStandard:SharePoints"}},
       {"dsAttrTypeNative:nfs_reshare_automount_recname", Array{"server:/x"}},
       {"dsAttrTypeNative:amt_rec_name", Array{"x"}}});
  EXPECT_TRUE(record.dictionary().empty());
  EXPECT_TRUE(record.dsDictionary().empty());
}

TEST(SharePointRecordForms, UnknownKeysAreIgnored) {
  EXPECT_EQ(throughDictionary({{"path", "/srv/a"}, {"isShared", true}, {"Path", "/srv/b"}}),
            (Dictionary{{"path", "/srv/a"}}));
}

TEST(SharePointRecordForms, DirectoryFormOmitsPropertiesNotStoredThere) {
  const auto record = SharePointRecord::recordWithDictionary(
      {{"mountedOnPath", "/"},
       {"isIndexingEnabled", true},
       {"isDeleted", true},
       {"nfsExportRecord", Dictionary{{"path", "/srv/a"}, {"clients", Array{}}}}});
  EXPECT_TRUE(record.dsDictionary().empty());
}

TEST(SharePointRecordForms, ThePathIsTheIdentifier) {
  SharePointRecord record = SharePointRecord::record();
  record.setPath("/srv/a");
  record.setDeleted(true);
  EXPECT_EQ(record.identifier(), "/srv/a");
  EXPECT_EQ(record.dictionary(), (Dictionary{{"path", "/srv/a"}, {"isDeleted", true}}));
}

TEST(SharePointRecordForms, SettersSetTheirProperty) {
  SharePointRecord record = SharePointRecord::record();
  record.setPath("/srv/a");
  record.setName("a");
  record.setNameOverVSP("v");
  record.setNameOverSMB("s");
  record.setNameOverFTP("f");
  record.setIndexingEnabled(false);
  record.setMountedOnPath("/srv");
  EXPECT_EQ(record.dictionary(), (Dictionary{{"path", "/srv/a"},
                                             {"name", "a"},
                                             {"nameOverVSP", "v"},
                                             {"nameOverSMB", "s"},
                                             {"nameOverFTP", "f"},
                                             {"isIndexingEnabled", false},
                                             {"mountedOnPath", "/srv"}}));
}

TEST(SharePointRecordForms, ExportIsKeptInOwnDictionaryForm) {
  const Dictionary form{
      {"path", "/srv/a"},
      {"nfsExportRecord",
       Dictionary{{"path", "/srv/a"},
                  {"clients", Array{Dictionary{{"host", "*"}, {"options", Array{"rw", "sync"}}},
                                    Dictionary{{"host", "10.0.0.0/8"}, {"options", Array{}}}}}}}};
  const auto record = SharePointRecord::recordWithDictionary(form);
  ASSERT_NE(record.nfsExportRecord(), nullptr);
  EXPECT_EQ(record.dictionary(), form);
  EXPECT_EQ(SharePointRecord::recordWithDictionary(record.dictionary()).dictionary(), form);
}

TEST(SharePointRecordForms, ExportWithoutPathGetsSharePointPath) {
  const Dictionary clients{{"clients", Array{Dictionary{{"host", "*"}, {"options", Array{"ro"}}}}}};
  const auto record =
      SharePointRecord::recordWithDictionary({{"path", "/srv/a"}, {"nfsExportRecord", clients}});
  EXPECT_EQ(exportPath(record.dictionary()), "/srv/a");
}

TEST(SharePointRecordForms, AnExportsOwnPathIsKept) {
  const auto record = SharePointRecord::recordWithDictionary(
      {{"path", "/srv/a"},
       {"nfsExportRecord", Dictionary{{"path", "/srv/b"}, {"clients", Array{}}}}});
  EXPECT_EQ(exportPath(record.dictionary()), "/srv/b");
}

TEST(SharePointRecordForms, DeletedExportStaysDeletedInDictionaryForm) {
  const Dictionary form{{"path", "/srv/a"},
                        {"nfsExportRecord", Dictionary{{"path", "/srv/a"}, {"isDeleted", true}}}};
  const Dictionary again = throughDictionary(form);
  ASSERT_NE(again.dictionary("nfsExportRecord"), nullptr);
  EXPECT_EQ(again.dictionary("nfsExportRecord")->boolean("isDeleted"), true);
}

TEST(SharePointRecordForms, MergingChangesOnlyWhatIsNamed) {
  const Dictionary before{{"path", "/srv/a"},        {"name", "a"},       {"nameOverSMB", "smb"},
                          {"isSharedOverVSP", true}, {kFileSystemKey, 1}, {"mountedOnPath", "/"}};
  for (const auto& entry : before) {
    SharePointRecord record = SharePointRecord::recordWithDictionary(before);
    Dictionary change;
    if (entry.value.string() != nullptr) change.set(entry.key, "");
    if (entry.value.boolean() != nullptr) change.set(entry.key, false);
    if (entry.value.integer() != nullptr) change.set(entry.key, 0);
    record.addAttributesFromDictionary(change);
    Dictionary expected = before;
    expected.set(entry.key, *change.find(entry.key));
    EXPECT_EQ(record.dictionary(), expected) << entry.key;
  }
}

TEST(SharePointRecordForms, MergingAnEmptyDictionaryChangesNothing) {
  const Dictionary before{{"path", "/srv/a"}, {"isAutomounted", false}, {"nameOverFTP", ""}};
  SharePointRecord record = SharePointRecord::recordWithDictionary(before);
  record.addAttributesFromDictionary({});
  EXPECT_EQ(record.dictionary(), before);
}

TEST(SharePointRecordForms, MergingValueOfWrongTypeKeepsStoredOne) {
  const Dictionary before{{"name", "a"}, {"isSharedOverVSP", true}, {kFileSystemKey, 4}};
  SharePointRecord record = SharePointRecord::recordWithDictionary(before);
  record.addAttributesFromDictionary(
      {{"name", 5}, {"isSharedOverVSP", "perhaps"}, {kFileSystemKey, "many"}});
  EXPECT_EQ(record.dictionary(), before);
}

TEST(SharePointRecordForms, MergingAnotherPropertyKeepsTheExport) {
  SharePointRecord record = SharePointRecord::recordWithDictionary(
      {{"path", "/srv/a"},
       {"nfsExportRecord",
        Dictionary{{"path", "/srv/a"},
                   {"clients", Array{Dictionary{{"host", "h"}, {"options", Array{"ro"}}}}}}}});
  const Dictionary before = record.dictionary();
  record.addAttributesFromDictionary({{"name", "new"}});
  Dictionary expected = before;
  expected.set("name", "new");
  EXPECT_EQ(record.dictionary(), expected);
}

TEST(SharePointRecordForms, MergedExportWithoutPathGetsSharePointPath) {
  SharePointRecord record = SharePointRecord::recordWithDictionary({{"path", "/srv/a"}});
  record.addAttributesFromDictionary(
      {{"nfsExportRecord",
        Dictionary{{"clients", Array{Dictionary{{"host", "h"}, {"options", Array{"ro"}}}}}}}});
  EXPECT_EQ(exportPath(record.dictionary()), "/srv/a");
}

// Makes dictionary forms with any subset of the properties and any of the hostile texts.
class FormGenerator {
 public:
  explicit FormGenerator(unsigned seed) : random_(seed) {}

  Dictionary form(bool onlyWhatTheDirectoryKeeps) {
    Dictionary form;
    for (const TextProperty& property : textProperties()) {
      if (onlyWhatTheDirectoryKeeps && property.attribute == nullptr) continue;
      if (coin()) form.set(property.key, hostileTexts()[below(hostileTexts().size())]);
    }
    for (const FlagProperty& property : flagProperties()) {
      if (onlyWhatTheDirectoryKeeps && property.attribute == nullptr) continue;
      if (coin()) form.set(property.key, coin());
    }
    if (coin()) form.set(kFileSystemKey, static_cast<std::int64_t>(random_()));
    return form;
  }

 private:
  bool coin() { return below(2) == 1; }
  std::size_t below(std::size_t limit) { return random_() % limit; }
  std::mt19937_64 random_;
};

TEST(SharePointRecordForms, DictionaryFormInvertsItsConstructorForAnySubset) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    const Dictionary form = FormGenerator(seed).form(false);
    ASSERT_EQ(throughDictionary(form), form) << "seed " << seed;
  }
}

TEST(SharePointRecordForms, DirectoryFormInvertsItsConstructorForAnySubset) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    const Dictionary form = FormGenerator(seed).form(true);
    ASSERT_EQ(throughDirectory(form), form) << "seed " << seed;
  }
}

TEST(SharePointRecordForms, MergingFormsReturnsUnionWithNewerValues) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    const Dictionary before = FormGenerator(seed).form(false);
    const Dictionary change = FormGenerator(seed + 1000).form(false);
    SharePointRecord record = SharePointRecord::recordWithDictionary(before);
    record.addAttributesFromDictionary(change);
    Dictionary expected = before;
    for (const auto& entry : change) expected.set(entry.key, entry.value);
    ASSERT_EQ(record.dictionary(), expected) << "seed " << seed;
  }
}

TEST(SharePointRecordForms, EachPropertyHasItsOwnKeyAndAttribute) {
  Dictionary form;
  for (const TextProperty& property : textProperties()) form.set(property.key, property.key);
  for (const FlagProperty& property : flagProperties()) form.set(property.key, true);
  form.set(kFileSystemKey, 1);
  const auto record = SharePointRecord::recordWithDictionary(form);
  EXPECT_EQ(record.dictionary(), form);
  std::set<std::string> attributes;
  for (const auto& entry : record.dsDictionary()) attributes.insert(entry.key);
  EXPECT_EQ(attributes,
            (std::set<std::string>{
                "dsAttrTypeNative:directory_path", "dsAttrTypeStandard:RecordName",
                "dsAttrTypeNative:vsp_name", "dsAttrTypeNative:smb_name",
                "dsAttrTypeNative:ftp_name", "dsAttrTypeNative:vsp_shared",
                "dsAttrTypeNative:backstowBackup", "dsAttrTypeNative:backstowBackupUUID",
                "dsAttrTypeNative:amt_is_automounted", "dsAttrTypeNative:amt_static_mount_path",
                "dsAttrTypeNative:amt_ds_path", "dsAttrTypeNative:amt_file_system"}));
}

}  // namespace
}  // namespace paddock
