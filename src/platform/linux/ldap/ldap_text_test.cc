#include "platform/linux/ldap/ldap_text.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(LdapText, WhatMeansSomethingInAFilterIsEscaped) {
  EXPECT_EQ(filterText("plain Text-1_2:/srv"), "plain Text-1_2:/srv");
  EXPECT_EQ(filterText("*)(uid=*"), "\\2a\\29\\28uid=\\2a");
  EXPECT_EQ(filterText("a\\2a"), "a\\5c2a");
  EXPECT_EQ(filterText(std::string("\0", 1)), "\\00");
  EXPECT_EQ(filterText("\xC3\xA9\n\x7F"), "\\c3\\a9\\0a\\7f");
  EXPECT_EQ(filterText(""), "");
}

TEST(LdapText, FiltersAreJoined) {
  EXPECT_EQ(equals("uid", "a(b"), "(uid=a\\28b)");
  EXPECT_EQ(anyOf({"(a=1)", "(b=2)"}), "(|(a=1)(b=2))");
  EXPECT_EQ(allOf({"(a=1)", "(b=2)", "(c=3)"}), "(&(a=1)(b=2)(c=3))");
  EXPECT_EQ(anyOf({"(a=1)"}), "(a=1)");
}

TEST(LdapText, SpecialCharactersInDistinguishedNameAreEscaped) {
  EXPECT_EQ(dnText("dsRecTypeStandard:Mounts/fileserver:/srv/a"),
            "dsRecTypeStandard:Mounts/fileserver:/srv/a");
  EXPECT_EQ(dnText("a,b+c=d\"e\\f<g>h;i"), "a\\2cb\\2bc\\3dd\\22e\\5cf\\3cg\\3eh\\3bi");
  EXPECT_EQ(dnText(" a "), "\\20a\\20");
  EXPECT_EQ(dnText("#a"), "\\23a");
  EXPECT_EQ(dnText(" "), "\\20");
  EXPECT_EQ(dnText("  "), "\\20\\20");
  EXPECT_EQ(dnText("a b"), "a b");
  EXPECT_EQ(dnText(std::string("\0\n", 2)), "\\00\\0a");
  EXPECT_EQ(dnText(""), "");
}

}  // namespace
}  // namespace paddock
