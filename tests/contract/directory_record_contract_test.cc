// What directory.h promises of records.
#include <gmock/gmock.h>

#include <cerrno>

#include "directory_subject.h"

namespace paddock::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DirectoryRecordContract : public DirectoryTest {
 protected:
  std::unique_ptr<DirectoryRecord> record() { return openNode()->findRecord("Docs", kShares); }

  void SetUp() override {
    DirectoryTest::SetUp();
    if (IsSkipped()) return;
    openNode()->newRecord("Other", kShares);
    openNode()->newRecord("Docs", kShares);
  }
};
INSTANTIATE_TEST_SUITE_P(Directory, DirectoryRecordContract, ::testing::ValuesIn(kSubjectKinds),
                         subjectName);

TEST_P(DirectoryRecordContract, NewRecordHasNameAndType) {
  EXPECT_THAT(record()->getAllAttributes(), ElementsAre(schema::kRecordName, schema::kRecordType));
  EXPECT_EQ(
      record()->getAllAttributesAndValues(),
      (Dictionary{{schema::kRecordName, Array{"Docs"}}, {schema::kRecordType, Array{kShares}}}));
}

TEST_P(DirectoryRecordContract, AttributesKeepOrderOfFirstSetting) {
  record()->setAttribute("z", "1");
  record()->setAttribute("a", "1");
  record()->setAttributesAndValues({{"m", "1"}, {"b", "1"}});
  record()->setAttribute("z", "2");
  EXPECT_THAT(record()->getAllAttributes(),
              ElementsAre(schema::kRecordName, schema::kRecordType, "z", "a", "b", "m"));
  record()->removeAttribute("z");
  record()->setAttribute("z", "3");
  record()->setAttribute(schema::kRecordName, "Docs2");
  EXPECT_THAT(openNode()->findRecord("Docs2", kShares)->getAllAttributes(),
              ElementsAre(schema::kRecordName, schema::kRecordType, "a", "b", "m", "z"));
}

TEST_P(DirectoryRecordContract, ValuesKeepTheirOrderAndTheirRepeats) {
  record()->setAttribute("list", Array{"b", "a", "", "b", "B"});
  EXPECT_EQ(record()->getAttribute("list"), (Array{"b", "a", "", "b", "B"}));
  EXPECT_EQ(record()->getAttributeFirstValue("list"), "b");
}

TEST_P(DirectoryRecordContract, MissingAttributeHasNoValues) {
  EXPECT_THAT(record()->getAttribute("list"), IsEmpty());
  EXPECT_FALSE(record()->getAttributeFirstValue("list"));
}

TEST_P(DirectoryRecordContract, SettingReplacesAllValues) {
  record()->setAttribute("list", Array{"a", "b", "c"});
  record()->setAttribute("list", Array{"d", "a"});
  EXPECT_EQ(record()->getAttribute("list"), (Array{"d", "a"}));
  record()->setAttribute("list", "e");
  EXPECT_EQ(record()->getAttribute("list"), Array{"e"});
  record()->setAttribute("list", "E");
  EXPECT_EQ(record()->getAttribute("list"), Array{"E"});
}

TEST_P(DirectoryRecordContract, ValuesComeBackByteForByte) {
  const std::string large = std::string(10'000, 'x') + "\xF0\x9F\x93\x81\n\t\"'%";
  record()->setAttribute("large", large);
  EXPECT_EQ(record()->getAttributeFirstValue("large"), large);
  EXPECT_EQ(openNode()
                ->findRecordsOfTypes({kShares}, "large", large, MatchType::caseInsensitiveExact)
                .size(),
            1U);
}

TEST_P(DirectoryRecordContract, ReplacingSeveralAttributesPreservesOthers) {
  record()->setAttributesAndValues({{"a", "1"}, {"b", Array{"1", "2"}}, {"c", "1"}});
  record()->setAttributesAndValues({{"b", "3"}, {"c", Array{"4", "5"}}});
  EXPECT_EQ(record()->getAttribute("a"), Array{"1"});
  EXPECT_EQ(record()->getAttribute("b"), Array{"3"});
  EXPECT_EQ(record()->getAttribute("c"), (Array{"4", "5"}));
  record()->setAttributesAndValues({});
  EXPECT_EQ(record()->getAllAttributes().size(), 5U);
}

TEST_P(DirectoryRecordContract, NonTextValueIsRefusedWithoutChanges) {
  record()->setAttribute("a", "1");
  const Dictionary before = record()->getAllAttributesAndValues();
  EXPECT_EQ(raised([&] { record()->setAttribute("a", "\xFF"); }), EINVAL);
  EXPECT_EQ(raised([&] { record()->setAttribute("a", std::string("x\0y", 3)); }), EINVAL);
  EXPECT_EQ(raised([&] { record()->setAttribute("a", Array{}); }), EINVAL);
  EXPECT_EQ(raised([&] { record()->setAttribute("a", Array{"x", 1}); }), EINVAL);
  EXPECT_EQ(raised([&] { record()->setAttribute("", "x"); }), EINVAL);
  for (const Value& wrong : {Value(1), Value(true), Value(Array{}), Value(Array{"x", Array{}}),
                             Value(Dictionary{}), Value(Data{})})
    EXPECT_EQ(raised([&] {
                record()->setAttributesAndValues({{"A", "new"}, {"b", wrong}});
              }),
              EINVAL);
  EXPECT_EQ(record()->getAllAttributesAndValues(), before);
}

TEST_P(DirectoryRecordContract, SeveralAttributesAreReplacedAllOrNone) {
  const Dictionary before = record()->getAllAttributesAndValues();
  EXPECT_EQ(
      raised([&] {
        record()->setAttributesAndValues({{"a", "1"}, {schema::kRecordName, "OTHER"}, {"z", "1"}});
      }),
      EEXIST);
  EXPECT_EQ(raised([&] {
              record()->setAttributesAndValues({{"a", "1"}, {schema::kRecordType, kMounts}});
            }),
            EINVAL);
  EXPECT_EQ(record()->getAllAttributesAndValues(), before);
  EXPECT_THAT(namesWith(*openNode(), "a", "1"), IsEmpty());
  record()->setAttribute("a", "1");
  EXPECT_THAT(namesWith(*openNode(), "a", "1"), ElementsAre("Docs"));
}

TEST_P(DirectoryRecordContract, SettingTheNameRenames) {
  const auto held = record();
  held->setAttribute("a", "1");
  held->setAttribute(schema::kRecordName, "Papers");
  EXPECT_EQ(record(), nullptr);
  ASSERT_NE(openNode()->findRecord("papers", kShares), nullptr);
  EXPECT_EQ(held->getAttributeFirstValue("a"), "1");
  held->setAttribute("a", "2");
  EXPECT_EQ(openNode()->findRecord("papers", kShares)->getAttributeFirstValue("a"), "2");
  EXPECT_EQ(raised([&] { openNode()->newRecord("Docs", kShares); }), 0);
}

TEST_P(DirectoryRecordContract, ANameMayChangeItsLetterCase) {
  record()->setAttribute(schema::kRecordName, "DOCS");
  EXPECT_EQ(record()->getAttributeFirstValue(schema::kRecordName), "DOCS");
  record()->setAttribute(schema::kRecordName, Array{"docs", "Docs", "Papers"});
  EXPECT_EQ(record()->getAttribute(schema::kRecordName), (Array{"docs", "Docs", "Papers"}));
}

TEST_P(DirectoryRecordContract, ANameOfAnotherRecordIsRefused) {
  openNode()
      ->findRecord("Other", kShares)
      ->setAttribute(schema::kRecordName, Array{"Other", "More"});
  EXPECT_EQ(raised([&] { record()->setAttribute(schema::kRecordName, "oTHER"); }), EEXIST);
  EXPECT_EQ(raised([&] {
              record()->setAttribute(schema::kRecordName, Array{"New", "MORE"});
            }),
            EEXIST);
  EXPECT_EQ(record()->getAttribute(schema::kRecordName), Array{"Docs"});
  EXPECT_EQ(openNode()->findRecord("New", kShares), nullptr);
}

TEST_P(DirectoryRecordContract, AnEmptyNameIsRefused) {
  EXPECT_EQ(raised([&] { record()->setAttribute(schema::kRecordName, ""); }), EINVAL);
  EXPECT_EQ(raised([&] { record()->setAttribute(schema::kRecordName, Array{"x", ""}); }), EINVAL);
  EXPECT_NE(record(), nullptr);
}

TEST_P(DirectoryRecordContract, TheTypeCannotBecomeAnother) {
  EXPECT_EQ(raised([&] { record()->setAttribute(schema::kRecordType, kMounts); }), EINVAL);
  EXPECT_EQ(raised([&] {
              record()->setAttribute(schema::kRecordType, Array{kShares, kShares});
            }),
            EINVAL);
  EXPECT_EQ(raised([&] { record()->setAttribute(schema::kRecordType, kShares); }), 0);
}

TEST_P(DirectoryRecordContract, WhatWasReadCanBeWrittenBack) {
  record()->setAttribute("list", Array{"a", "b"});
  const Dictionary before = record()->getAllAttributesAndValues();
  record()->setAttributesAndValues(before);
  EXPECT_EQ(record()->getAllAttributesAndValues(), before);
}

TEST_P(DirectoryRecordContract, RemovingAnAttributeRemovesItsValues) {
  record()->setAttribute("a", Array{"1", "2"});
  record()->removeAttribute("a");
  EXPECT_THAT(record()->getAttribute("a"), IsEmpty());
  EXPECT_EQ(record()->getAllAttributes().size(), 2U);
}

TEST_P(DirectoryRecordContract, RemovingMissingAttributeSucceeds) {
  EXPECT_EQ(raised([&] { record()->removeAttribute("a"); }), 0);
  EXPECT_EQ(raised([&] { record()->removeAttribute(""); }), 0);
}

TEST_P(DirectoryRecordContract, RemovingTheNameRemovesTheFurtherNamesOnly) {
  record()->setAttribute(schema::kRecordName, Array{"Docs", "Papers"});
  record()->removeAttribute(schema::kRecordName);
  EXPECT_EQ(record()->getAttribute(schema::kRecordName), Array{"Docs"});
  EXPECT_EQ(openNode()->findRecord("Papers", kShares), nullptr);
  record()->removeAttribute(schema::kRecordName);
  EXPECT_NE(record(), nullptr);
}

TEST_P(DirectoryRecordContract, RemovingTheTypeRemovesNothing) {
  record()->removeAttribute(schema::kRecordType);
  EXPECT_EQ(record()->getAttribute(schema::kRecordType), Array{kShares});
}

TEST_P(DirectoryRecordContract, RemovingAllAttributesKeepsFirstNameAndType) {
  record()->setAttributesAndValues(
      {{"a", "1"}, {"b", "2"}, {schema::kRecordName, Array{"Docs", "Papers"}}});
  record()->removeAllAttributesAndValues();
  EXPECT_EQ(
      record()->getAllAttributesAndValues(),
      (Dictionary{{schema::kRecordName, Array{"Docs"}}, {schema::kRecordType, Array{kShares}}}));
}

TEST_P(DirectoryRecordContract, ARemovedRecordIsGoneForEveryObject) {
  record()->setAttributesAndValues({{"a", "1"}, {schema::kRecordName, Array{"Docs", "Papers"}}});
  const auto held = record();
  const auto other = record();
  held->removeRecord();
  EXPECT_EQ(record(), nullptr);
  EXPECT_EQ(openNode()->findRecord("Papers", kShares), nullptr);
  EXPECT_THAT(namesWith(*openNode(), "a", "1"), IsEmpty());
  EXPECT_THAT(allNames(*openNode()), ElementsAre("Other"));
  for (DirectoryRecord* gone : {held.get(), other.get()}) {
    EXPECT_EQ(raised([&] { gone->removeRecord(); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->getAllAttributes(); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->getAllAttributesAndValues(); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->getAttribute("a"); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->getAttributeFirstValue("a"); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->setAttribute("a", "1"); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->removeAttribute("a"); }), ENOENT);
    EXPECT_EQ(raised([&] { gone->setAttributesAndValues({}); }), ENOENT);
  }
}

TEST_P(DirectoryRecordContract, NewRecordWithSameNameIsDistinct) {
  const auto held = record();
  held->removeRecord();
  openNode()->newRecord("Docs", kShares)->setAttribute("a", "1");
  EXPECT_EQ(raised([&] { held->setAttribute("a", "2"); }), ENOENT);
  EXPECT_EQ(record()->getAttributeFirstValue("a"), "1");
}

}  // namespace
}  // namespace paddock::contract
