#include "keelhouse/mode_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/failure.h"

namespace paddock::keelhouse {
namespace {

std::string refusalOf(const std::string& text) {
  try {
    parseMode(text);
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::usage);
    return failed.what();
  }
  return {};
}

TEST(ModeText, isThreeOctalDigitsWithOrWithoutALeadingZero) {
  EXPECT_EQ(parseMode("750"), "750");
  EXPECT_EQ(parseMode("0750"), "750");
  EXPECT_EQ(parseMode("000"), "000");
  EXPECT_EQ(parseMode("0000"), "000");
  EXPECT_EQ(parseMode("007"), "007");
}

TEST(ModeText, cannotAskForSetIdAndStickyBits) {
  for (const char* text : {"1777", "2755", "4755", "7777"}) {
    EXPECT_THAT(refusalOf(text), ::testing::HasSubstr("asks for set-id or sticky bits")) << text;
  }
  EXPECT_THAT(refusalOf("2755"), ::testing::EndsWith("write the three digits 755"));
}

TEST(ModeText, isRefusedInAnyOtherForm) {
  for (const char* text : {"", "7", "75", "00750", "8", "758", "7x9", "u+rwx", "-75", "+75", " 75",
                           "75 ", "0o750", "rwxr-x---"}) {
    EXPECT_THAT(refusalOf(text), ::testing::HasSubstr("is no mode")) << text;
  }
}

TEST(ModeText, isShownInLettersToo) {
  EXPECT_EQ(formatMode("750"), "750 (rwxr-x---)");
  EXPECT_EQ(formatMode("007"), "007 (------rwx)");
  EXPECT_EQ(formatMode("421"), "421 (r---w---x)");
}

TEST(ModeText, isLeftAsItIsWhenItIsNone) {
  EXPECT_EQ(formatMode("89"), "89");
  EXPECT_EQ(formatMode("0755"), "0755");
}

}  // namespace
}  // namespace paddock::keelhouse
