#include "platform/linux/process/case_fold.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(TextCaseFolding, FoldsAscii) { EXPECT_EQ(caseFold("Docs-2 [X]"), "docs-2 [x]"); }

TEST(TextCaseFolding, FoldsEveryScript) {
  EXPECT_EQ(caseFold("\xC3\x89T\xC3\x89"), "\xC3\xA9t\xC3\xA9");  // É to é
  EXPECT_EQ(caseFold("\xCE\xA3\xCF\x82"), "\xCF\x83\xCF\x83");    // Σ and ς to σ
  EXPECT_EQ(caseFold("\xF0\x90\x90\x80"), "\xF0\x90\x90\xA8");    // Deseret
}

TEST(TextCaseFolding, FoldsFullyWhereOneCharacterBecomesSeveral) {
  EXPECT_EQ(caseFold("Stra\xC3\x9F"
                     "e"),
            "strasse");
  EXPECT_EQ(caseFold("\xEF\xAC\x83"), "ffi");
}

TEST(TextCaseFolding, DoesNotNormalise) {
  EXPECT_EQ(caseFold("e\xCC\x81"), "e\xCC\x81");
  EXPECT_NE(caseFold("e\xCC\x81"), caseFold("\xC3\xA9"));
  EXPECT_EQ(caseFold(" a  b "), " a  b ");
}

TEST(TextCaseFolding, DoesNotFollowTheTurkishRule) {
  EXPECT_EQ(caseFold("I"), "i");
  EXPECT_EQ(caseFold("\xC4\xB0"), "i\xCC\x87");  // İ to i and a dot above
}

TEST(TextCaseFolding, IsIdempotent) {
  for (const char* text : {"\xC3\x9F", "\xC4\xB0", "\xE1\xBA\x9E", "\xEF\xAC\x86", "\xC7\x85"})
    EXPECT_EQ(caseFold(caseFold(text)), caseFold(text));
}

TEST(TextCaseFolding, LeavesMalformedTextAlone) { EXPECT_EQ(caseFold("A\xFF"), "A\xFF"); }

TEST(TextCaseFolding, KeepsNul) {
  using namespace std::string_literals;
  EXPECT_EQ(caseFold("A\0\xC3\x89"s), "a\0\xC3\xA9"s);
}

}  // namespace
}  // namespace paddock
