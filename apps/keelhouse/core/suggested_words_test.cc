#include "keelhouse/core/suggested_words.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {

namespace {

const std::vector<std::string> kCommands = {"share", "privs", "acl",   "propagate",
                                            "quota", "index", "status"};

TEST(NearestWord, IsASlipAway) {
  for (const auto& [typed, meant] :
       std::vector<std::pair<const char*, const char*>>{{"shre", "share"},
                                                        {"sahre", "share"},
                                                        {"shares", "share"},
                                                        {"SHARE", "share"},
                                                        {"propgate", "propagate"},
                                                        {"propergate", "propagate"},
                                                        {"qouta", "quota"},
                                                        {"al", "acl"},
                                                        {"stauts", "status"}}) {
    EXPECT_EQ(nearestWord(typed, kCommands), meant) << typed;
  }
}

TEST(NearestWord, IsNoneWhereNothingIsNear) {
  for (const char* typed : {"", "frobnicate", "x", "shrink", "ls", "list"}) {
    EXPECT_EQ(nearestWord(typed, kCommands), std::nullopt) << typed;
  }
  EXPECT_EQ(nearestWord("a", {"b"}), std::nullopt);
  EXPECT_EQ(nearestWord("share", {}), std::nullopt);
}

TEST(NearestWord, IsNotSearchedInOverlongTexts) {
  const std::string longText(1 << 20, 'x');
  EXPECT_EQ(nearestWord(longText, {longText}), std::nullopt);
  EXPECT_EQ(nearestWord("share", {longText}), std::nullopt);
}

TEST(NearestWord, OfSeveralIsTheFirst) {
  EXPECT_EQ(nearestWord("photos", {"photos1", "photos2"}), "photos1");
}

TEST(DidYouMean, IsTheEndOfASentence) {
  EXPECT_EQ(didYouMean("shre", kCommands), ": did you mean share?");
  EXPECT_EQ(didYouMean("shwo", {"show"}, "share "), ": did you mean share show?");
  EXPECT_EQ(didYouMean("frobnicate", kCommands), "");
}

TEST(ShellWord, KeepsSafeTextUnquoted) {
  EXPECT_EQ(shellWord("/srv/a-b_c.d"), "/srv/a-b_c.d");
  EXPECT_EQ(shellWord("host.example:/srv/a"), "host.example:/srv/a");
}

TEST(ShellWord, QuotesTextThatShellWouldSplit) {
  EXPECT_EQ(shellWord(""), "''");
  EXPECT_EQ(shellWord("a b"), "'a b'");
  EXPECT_EQ(shellWord("$(reboot);`x`"), "'$(reboot);`x`'");
  EXPECT_EQ(shellWord("it's"), "'it'\\''s'");
  EXPECT_EQ(shellWord("\xC3\xA9"), "'\xC3\xA9'");
}

}  // namespace

}  // namespace paddock::keelhouse
