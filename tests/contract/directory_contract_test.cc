// What directory.h promises of nodes and searches.
#include <gmock/gmock.h>

#include <cerrno>
#include <thread>

#include "directory_subject.h"

namespace paddock::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Names = std::vector<std::string>;

constexpr auto kExact = MatchType::caseInsensitiveExact;

class DirectoryNodeContract : public DirectoryTest {};
INSTANTIATE_TEST_SUITE_P(Directory, DirectoryNodeContract, ::testing::ValuesIn(kSubjectKinds),
                         subjectName);

TEST_P(DirectoryNodeContract, AnEmptyNodeAnswersNothing) {
  EXPECT_THAT(allNames(*openNode()), IsEmpty());
  EXPECT_THAT(namesWith(*openNode(), "attribute", "value"), IsEmpty());
  EXPECT_EQ(openNode()->findRecord("Docs", kShares), nullptr);
}

TEST_P(DirectoryNodeContract, AnswersHoldStringArraysWithNameAndType) {
  openNode()->newRecord("Docs", kShares)->setAttribute("list", Array{"b", "a", "b"});
  const Array answers = openNode()->findRecordNames(kRecordsAll, {kAttributesAll}, kShares, kExact);
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_EQ(*answers[0].dictionary(), (Dictionary{{schema::kRecordName, Array{"Docs"}},
                                                  {schema::kRecordType, Array{kShares}},
                                                  {"list", Array{"b", "a", "b"}}}));
  EXPECT_EQ(openNode()->findRecordsOfTypes({kShares}, "list", "a", kExact), answers);
}

TEST_P(DirectoryNodeContract, AnswersHoldOnlyRequestedAttributes) {
  openNode()->newRecord("Docs", kShares)->setAttributesAndValues({{"a", "1"}, {"b", "2"}});
  openNode()->newRecord("Bare", kShares);
  const auto asked = [&](const Names& attributes) {
    return openNode()->findRecordNames(kRecordsAll, attributes, kShares, kExact);
  };
  EXPECT_EQ(asked({"b", "nobody has it"}), (Array{Dictionary{{"b", Array{"2"}}}, Dictionary{}}));
  EXPECT_EQ(asked({schema::kRecordType})[0],
            Value(Dictionary{{schema::kRecordType, Array{kShares}}}));
  EXPECT_EQ(asked({"b", kAttributesAll})[0].dictionary()->size(), 4U);
  EXPECT_EQ(asked({}), (Array{Dictionary{}, Dictionary{}}));
}

TEST_P(DirectoryNodeContract, AnswersComeInTheOrderOfCreation) {
  for (const char* name : {"c", "a", "d", "b"}) openNode()->newRecord(name, kShares);
  openNode()->findRecord("a", kShares)->setAttribute(schema::kRecordName, "z");
  openNode()->findRecord("d", kShares)->removeRecord();
  openNode()->newRecord("a", kShares);
  EXPECT_THAT(allNames(*openNode()), ElementsAre("c", "z", "b", "a"));
  for (const char* name : {"a", "b", "z", "c"})
    openNode()->findRecord(name, kShares)->setAttribute("flag", "1");
  EXPECT_THAT(namesWith(*openNode(), "flag", "1"), ElementsAre("c", "z", "b", "a"));
}

TEST_P(DirectoryNodeContract, SearchOfSeveralTypesPreservesCreationOrder) {
  openNode()->newRecord("m", kMounts)->setAttribute("flag", "1");
  openNode()->newRecord("s", kShares)->setAttribute("flag", "1");
  openNode()->newRecord("M", kShares)->setAttribute("flag", "1");
  EXPECT_THAT(namesWith(*openNode(), "flag", "1", {kShares, kMounts, kShares}),
              ElementsAre("m", "s", "M"));
  EXPECT_THAT(namesWith(*openNode(), "flag", "1", {kMounts}), ElementsAre("m"));
  EXPECT_THAT(namesWith(*openNode(), "flag", "1", {}), IsEmpty());
  EXPECT_THAT(namesWith(*openNode(), schema::kRecordName, "m", {kShares, kMounts}),
              ElementsAre("m", "M"));
}

TEST_P(DirectoryNodeContract, MatchingFoldsTheWholeOfUnicode) {
  openNode()
      ->newRecord(
          "Stra\xC3\x9F"
          "e \xC3\x89",
          kShares)
      ->setAttribute("path", "/srv/\xCE\x9F\xCE\x94\xCE\x9F\xCE\xA3");
  EXPECT_EQ(namesWith(*openNode(), "path", "/SRV/\xCE\xBF\xCE\xB4\xCE\xBF\xCF\x82").size(), 1U);
  EXPECT_NE(openNode()->findRecord("STRASSE \xC3\xA9", kShares), nullptr);
  EXPECT_EQ(namesWith(*openNode(), schema::kRecordName, "strasse \xC3\xA9").size(), 1U);
}

TEST_P(DirectoryNodeContract, MatchingDoesNotNormaliseTrimOrSqueeze) {
  openNode()->newRecord("\xC3\xA9", kShares)->setAttribute("path", "/srv/a b");
  EXPECT_EQ(openNode()->findRecord("e\xCC\x81", kShares), nullptr);
  EXPECT_EQ(openNode()->findRecord("\xC3\xA9 ", kShares), nullptr);
  for (const char* other : {"/srv/a  b", "/srv/a b ", " /srv/a b", "/srv/a", "/srv/a b/"})
    EXPECT_THAT(namesWith(*openNode(), "path", other), IsEmpty()) << other;
}

TEST_P(DirectoryNodeContract, AnyValueMatchesAndRecordIsReturnedOnce) {
  openNode()->newRecord("Docs", kShares)->setAttribute("list", Array{"x", "Y", "y"});
  EXPECT_THAT(namesWith(*openNode(), "list", "y"), ElementsAre("Docs"));
  EXPECT_THAT(namesWith(*openNode(), "list", "X"), ElementsAre("Docs"));
  EXPECT_THAT(namesWith(*openNode(), "list", "xY"), IsEmpty());
}

TEST_P(DirectoryNodeContract, AnAttributesNameMatchesExactly) {
  openNode()->newRecord("Docs", kShares)->setAttribute("path", "/srv");
  EXPECT_THAT(namesWith(*openNode(), "PATH", "/srv"), IsEmpty());
  EXPECT_THAT(namesWith(*openNode(), kAttributesAll, "/srv"), IsEmpty());
}

TEST_P(DirectoryNodeContract, ValuesThatWereReplacedNoLongerMatch) {
  const auto record = openNode()->newRecord("Docs", kShares);
  record->setAttribute("list", Array{"x", "y"});
  record->setAttribute("list", Array{"y", "z"});
  EXPECT_THAT(namesWith(*openNode(), "list", "x"), IsEmpty());
  EXPECT_THAT(namesWith(*openNode(), "list", "y"), ElementsAre("Docs"));
  record->removeAttribute("list");
  EXPECT_THAT(namesWith(*openNode(), "list", "y"), IsEmpty());
}

TEST_P(DirectoryNodeContract, AnEmptyValueIsAValue) {
  openNode()->newRecord("Docs", kShares)->setAttribute("smb_name", "");
  openNode()->newRecord("Other", kShares);
  EXPECT_THAT(namesWith(*openNode(), "smb_name", ""), ElementsAre("Docs"));
}

TEST_P(DirectoryNodeContract, TheTypeMatchesLikeAnyValue) {
  openNode()->newRecord("Docs", kShares);
  openNode()->newRecord("Mount", kMounts);
  EXPECT_THAT(namesWith(*openNode(), schema::kRecordType, "DSRECTYPESTANDARD:sharepoints",
                        {kMounts, kShares}),
              ElementsAre("Docs"));
  EXPECT_THAT(namesWith(*openNode(), schema::kRecordType, kShares, {kMounts}), IsEmpty());
}

TEST_P(DirectoryNodeContract, TextThatNoRecordCanHaveMatchesNothing) {
  openNode()->newRecord("Docs", kShares)->setAttribute("path", "/srv");
  for (const std::string& text : {std::string(), std::string("\xFF"), std::string("Docs\0", 5)}) {
    EXPECT_EQ(openNode()->findRecord(text, kShares), nullptr);
    EXPECT_EQ(openNode()->findRecord("Docs", text), nullptr);
    EXPECT_THAT(namesWith(*openNode(), schema::kRecordName, text), IsEmpty());
    EXPECT_THAT(namesWith(*openNode(), "path", text), IsEmpty());
    EXPECT_THAT(namesWith(*openNode(), text, "/srv"), IsEmpty());
    EXPECT_THAT(openNode()->findRecordNames(text, {kAttributesAll}, kShares, kExact), IsEmpty());
    EXPECT_THAT(allNames(*openNode(), text), IsEmpty());
  }
}

TEST_P(DirectoryNodeContract, AnUnknownMatchTypeIsInvalid) {
  const auto other = static_cast<MatchType>(0x2001);
  EXPECT_EQ(raised([&] { openNode()->findRecordsOfTypes({kShares}, "a", "b", other); }), EINVAL);
  EXPECT_EQ(raised([&] { openNode()->findRecordNames("a", {}, kShares, other); }), EINVAL);
}

TEST_P(DirectoryNodeContract, RecordsAreFoundByAnyOfTheirNames) {
  openNode()
      ->newRecord("Docs", kShares)
      ->setAttribute(schema::kRecordName, Array{"Docs", "Papers"});
  EXPECT_NE(openNode()->findRecord("PAPERS", kShares), nullptr);
  EXPECT_THAT(namesWith(*openNode(), schema::kRecordName, "papers"), ElementsAre("Docs"));
  EXPECT_THAT(namesOf(openNode()->findRecordNames("papers", {kAttributesAll}, kShares, kExact)),
              ElementsAre("Docs"));
  EXPECT_EQ(openNode()->findRecord("papers", kMounts), nullptr);
}

TEST_P(DirectoryNodeContract, NameIsUniquePerTypeIgnoringCase) {
  openNode()
      ->newRecord("Docs", kShares)
      ->setAttribute(schema::kRecordName, Array{"Docs", "\xC3\x84"});
  EXPECT_EQ(raised([&] { openNode()->newRecord("dOCS", kShares); }), EEXIST);
  EXPECT_EQ(raised([&] { openNode()->newRecord("\xC3\xA4", kShares); }), EEXIST);
  EXPECT_EQ(raised([&] { openNode()->newRecord("Docs", kMounts); }), 0);
  EXPECT_EQ(allNames(*openNode()).size(), 1U);
}

TEST_P(DirectoryNodeContract, ARecordNeedsANameAndAType) {
  for (const std::string& text : {std::string(), std::string("\xFF"), std::string("a\0b", 3)}) {
    EXPECT_EQ(raised([&] { openNode()->newRecord(text, kShares); }), EINVAL);
    EXPECT_EQ(raised([&] { openNode()->newRecord("Docs", text); }), EINVAL);
  }
  EXPECT_THAT(allNames(*openNode()), IsEmpty());
}

TEST_P(DirectoryNodeContract, ANameMayBeLong) {
  const std::string name(10'000, 'x');
  openNode()->newRecord(name, kShares);
  EXPECT_NE(openNode()->findRecord(std::string(10'000, 'X'), kShares), nullptr);
}

TEST_P(DirectoryNodeContract, NodesAndRecordsOutliveTheirSession) {
  auto session = service().openLocal();
  const auto node = nodeOf(*session);
  const auto record = node->newRecord("Docs", kShares);
  session.reset();
  record->setAttribute("a", "1");
  EXPECT_THAT(namesWith(*node, "a", "1"), ElementsAre("Docs"));
}

TEST_P(DirectoryNodeContract, ARecordOutlivesItsNode) {
  auto node = openNode();
  const auto record = node->newRecord("Docs", kShares);
  node.reset();
  record->setAttribute("a", "1");
  EXPECT_EQ(record->getAttributeFirstValue("a"), "1");
}

TEST_P(DirectoryNodeContract, WhatOneSessionWritesAnotherReads) {
  const auto first = service().openLocal();
  const auto second = service().openLocal();
  const auto node = nodeOf(*second);
  nodeOf(*first)->newRecord("Docs", kShares);
  EXPECT_THAT(allNames(*node), ElementsAre("Docs"));
}

TEST_P(DirectoryNodeContract, SessionsWorkInParallel) {
  constexpr int kThreads = 8;
  constexpr int kRecords = 10;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kRecords; ++i) {
        const auto session = service().openLocal();
        const auto node = nodeOf(*session);
        const std::string name = std::to_string(thread) + "-" + std::to_string(i);
        node->newRecord(name, kShares)->setAttribute("thread", std::to_string(thread));
        EXPECT_NE(node->findRecord(name, kShares), nullptr);
        static_cast<void>(raised([&] { node->newRecord("contended", kMounts); }));
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(allNames(*openNode()).size(), static_cast<std::size_t>(kThreads * kRecords));
  EXPECT_THAT(allNames(*openNode(), kMounts), ElementsAre("contended"));
  EXPECT_EQ(namesWith(*openNode(), "thread", "3").size(), static_cast<std::size_t>(kRecords));
}

TEST_P(DirectoryNodeContract, AWritableNodeSaysSo) {
  EXPECT_EQ(openNode()->path(), nodePath());
  EXPECT_EQ(openNode()->getAttribute(schema::kReadOnlyNode), Array{"ReadWrite"});
  EXPECT_EQ(openNode()->getAttributeFirstValue(schema::kReadOnlyNode), "ReadWrite");
  EXPECT_THAT(openNode()->getAttribute(schema::kSearchPath), IsEmpty());
  EXPECT_FALSE(openNode()->getAttributeFirstValue("nothing"));
}

TEST_P(DirectoryNodeContract, NodesAreFoundByTheirPath) {
  openNode()->newRecord("Docs", kShares);
  const auto session = service().openLocal();
  EXPECT_THAT(allNames(*session->findNode(nodePath())), ElementsAre("Docs"));
  EXPECT_EQ(session->findNode("/Search")->path(), "/Search");
  for (const char* path : {"", "/", "/local", "/Local/", "Local", "/LDAP/nowhere"})
    EXPECT_EQ(raised([&] { session->findNode(path); }), ENOENT) << path;
}

TEST_P(DirectoryNodeContract, SearchNodeQueriesNodesOfSearchPath) {
  openNode()->newRecord("Docs", kShares)->setAttribute("a", "1");
  const auto search = service().openLocal()->searchNode();
  EXPECT_EQ(search->path(), "/Search");
  EXPECT_EQ(search->getAttributeFirstValue(schema::kSearchPath), nodePath());
  EXPECT_EQ(search->getAttributeFirstValue(schema::kReadOnlyNode), "ReadOnly");
  EXPECT_THAT(namesWith(*search, "a", "1"), ElementsAre("Docs"));
  EXPECT_THAT(allNames(*search), ElementsAre("Docs"));
  ASSERT_NE(search->findRecord("docs", kShares), nullptr);
  EXPECT_EQ(search->findRecord("nothing", kShares), nullptr);
  EXPECT_EQ(raised([&] { search->newRecord("New", kShares); }), EACCES);
}

TEST_P(DirectoryNodeContract, EverySearchPathNodeCanBeOpened) {
  const auto session = service().openLocal();
  for (const Value& path : session->searchNode()->getAttribute(schema::kSearchPath)) {
    const auto node = session->findNode(*path.string());
    EXPECT_EQ(node->path(), *path.string());
    EXPECT_TRUE(node->getAttributeFirstValue(schema::kReadOnlyNode));
  }
}

}  // namespace
}  // namespace paddock::contract
