#include "samba/samba_text.h"

#include <gtest/gtest.h>

namespace paddock::samba {
namespace {

std::string repeated(std::string_view text, int count) {
  std::string result;
  for (int number = 0; number < count; ++number) result += text;
  return result;
}

TEST(FaultOfValue, ValuesReadBackUnchangedHaveNone) {
  for (const char* text : {"/srv/plans",
                           "/srv/two words",
                           "/srv/Überblick",
                           "/srv/\xF0\x9F\x93\xB7",
                           "/a;b",
                           "/a#b",
                           "/a=b",
                           "/[a]",
                           "/a\\b",
                           "/a\"b",
                           "/'a'",
                           "/a\tb",
                           "/a\rb",
                           "/100%",
                           "/100% wool",
                           "/%%",
                           "/a%2Fb",
                           "/a,b",
                           "/$HOME",
                           "/`id`",
                           ";a",
                           "#a",
                           "include",
                           ""}) {
    EXPECT_EQ(faultOfValue(text), "") << text;
  }
}

TEST(FaultOfValue, BlanksAtTheEndsWouldBeDropped) {
  for (const char* text : {" a", "a ", "a\t", "a\r", "a\v", "a\f"})
    EXPECT_EQ(faultOfValue(text), "begins or ends with a blank") << text;
}

TEST(FaultOfValue, BlanksInARowWouldBeJoined) {
  EXPECT_EQ(faultOfValue("/a  b"), "has blanks in a row");
  EXPECT_EQ(faultOfValue("/a \tb"), "has blanks in a row");
}

TEST(FaultOfValue, QuotationMarksAtTheEndsWouldBeDropped) {
  for (const char* text : {"\"a", "/a\"", "\""})
    EXPECT_EQ(faultOfValue(text), "begins or ends with a quotation mark") << text;
}

TEST(FaultOfValue, VariablesWouldBeReplacedAndCannotBeEscaped) {
  for (const char* text : {"/home/%U", "/%$(HOME)", "/a%%U", "%S", "/100%cotton"})
    EXPECT_EQ(faultOfValue(text), "has a percent sign that Samba reads as a variable") << text;
}

TEST(FaultOfValue, ALineBreakWouldBeginAnotherParameter) {
  EXPECT_EQ(faultOfValue("/a\nguest ok = yes"), "has a line break");
}

TEST(FaultOfValue, TrailingBackslashWouldJoinNextLine) {
  EXPECT_EQ(faultOfValue("/a\\"), "ends with a backslash");
  EXPECT_EQ(faultOfValue("/a\\\\"), "ends with a backslash");
}

TEST(FaultOfValue, InvalidUtf8AndNulAreFaults) {
  EXPECT_EQ(faultOfValue("/a\xFF"), "is not UTF-8");
  EXPECT_EQ(faultOfValue("/\xED\xA0\x80"), "is not UTF-8");
  EXPECT_EQ(faultOfValue(std::string_view("/a\0b", 4)), "has a NUL");
}

TEST(FaultOfShareName, ThereIsNoneInNamesThatSambaServes) {
  for (const char* name : {"plans",     "Summer photos",
                           "Überblick", "\xF0\x9F\x93\xB7",
                           "שלום",      "R&D, Berlin",
                           "C++",       "a;b",
                           "a:b",       "a=b",
                           "a*b?",      "a<b>|",
                           "a\"b",      "#a",
                           ";a",        "100%",
                           "50% off",   "a$",
                           "$",         ".",
                           "..",        "include",
                           "ho mes",    "home",
                           "netlogon",  "print",
                           "admin",     "-"}) {
    EXPECT_EQ(faultOfShareName(name), "") << name;
  }
}

TEST(FaultOfShareName, NamesReservedBySambaAreFaultsCaseInsensitively) {
  for (const char* name : {"global", "GLOBAL", "Globals", "homes", "Homes", "printers", "print$",
                           "PRINT$", "ipc$", "IPC$", "ADMIN$", "g l o b a l", "global s"}) {
    EXPECT_EQ(faultOfShareName(name), "is one that Samba keeps for itself") << name;
  }
}

TEST(FaultOfShareName, ControlCharactersAreFaults) {
  for (const char* name : {"a\nb", "a\tb",
                           "a\x1B"
                           "b",
                           "a\x7F"
                           "b",
                           "a\xC2\x85"
                           "b",
                           "a\xC2\x9F"
                           "b"})
    EXPECT_EQ(faultOfShareName(name), "has a control character") << name;
  EXPECT_EQ(faultOfShareName(std::string_view("a\0b", 3)), "has a control character");
}

TEST(FaultOfShareName, BracketsSlashesAndBackslashesAreFaults) {
  EXPECT_EQ(faultOfShareName("a]b"), "has a bracket");
  EXPECT_EQ(faultOfShareName("[a"), "has a bracket");
  EXPECT_EQ(faultOfShareName("a/b"), "has a slash or backslash");
  EXPECT_EQ(faultOfShareName("a\\b"), "has a slash or backslash");
}

TEST(FaultOfShareName, EightyUnitsOfUtf16AreTheMost) {
  EXPECT_EQ(faultOfShareName(repeated("x", 80)), "");
  EXPECT_EQ(faultOfShareName(repeated("x", 81)), "has more than 80 characters");
  EXPECT_EQ(faultOfShareName(repeated("é", 80)), "");
  EXPECT_EQ(faultOfShareName(repeated("é", 81)), "has more than 80 characters");
  EXPECT_EQ(faultOfShareName(repeated("\xF0\x9F\x98\x80", 40)), "");
  EXPECT_EQ(faultOfShareName(repeated("\xF0\x9F\x98\x80", 40) + "x"),
            "has more than 80 characters");
}

TEST(FaultOfShareName, FaultsOfValuesAreFaultsOfNames) {
  EXPECT_EQ(faultOfShareName(" a"), "begins or ends with a blank");
  EXPECT_EQ(faultOfShareName("a "), "begins or ends with a blank");
  EXPECT_EQ(faultOfShareName("a  b"), "has blanks in a row");
  EXPECT_EQ(faultOfShareName("\"a\""), "begins or ends with a quotation mark");
  EXPECT_EQ(faultOfShareName("%U"), "has a percent sign that Samba reads as a variable");
  EXPECT_EQ(faultOfShareName("a\xFF"), "is not UTF-8");
  EXPECT_EQ(faultOfShareName(""), "is empty");
}

TEST(ShareNameKey, LetterCaseDoesNotCount) {
  EXPECT_EQ(shareNameKey("PLANS"), shareNameKey("plans"));
  EXPECT_EQ(shareNameKey("ÜBERBLICK"), shareNameKey("überblick"));
  EXPECT_EQ(shareNameKey("ΣΑ"), shareNameKey("σα"));
  EXPECT_EQ(shareNameKey("\xE2\x84\xAA"), shareNameKey("k"));  // the Kelvin sign
}

TEST(ShareNameKey, NothingElseIsLookedThrough) {
  EXPECT_NE(shareNameKey("Straße"), shareNameKey("STRASSE"));
  EXPECT_NE(shareNameKey("é"), shareNameKey("e\xCC\x81"));  // one character, and two
  EXPECT_NE(shareNameKey("a b"), shareNameKey("ab"));
}

}  // namespace
}  // namespace paddock::samba
