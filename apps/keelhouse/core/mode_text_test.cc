#include "keelhouse/core/mode_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;

TEST(ModeText, threeDigitsSayNothingOfTheFourth) {
  for (const char* text : {"750", "000", "777"}) {
    EXPECT_EQ(parseMode(text).permissions, text);
    EXPECT_EQ(parseMode(text).bits, std::nullopt);
  }
}

TEST(ModeText, fourDigitsAreTheBitsAndThePermissions) {
  for (const char* text : {"0750", "2770", "7777", "1000"}) {
    const TypedMode mode = parseMode(text);
    EXPECT_EQ(mode.bits.value_or("") + mode.permissions, text);
    EXPECT_EQ(mode.permissions.size(), 3U);
  }
}

TEST(ModeText, isRefusedForOtherTexts) {
  for (const char* text :
       {"", "7", "75", "00750", "758", "rwx", "u+x", " 750", "7x0", "-750", "8750", "02770"}) {
    try {
      parseMode(text);
      ADD_FAILURE() << text;
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status(), ExitStatus::usage);
      EXPECT_THAT(failure.what(), HasSubstr("is no mode"));
    }
  }
}

TEST(ModeText, isShownWithLetters) {
  EXPECT_EQ(formatMode("750"), "750 (rwxr-x---)");
  EXPECT_EQ(formatMode("000"), "000 (---------)");
  EXPECT_EQ(formatMode("421"), "421 (r---w---x)");
  EXPECT_EQ(formatMode("7x9"), "7x9");
  EXPECT_EQ(formatMode(""), "");
}

TEST(ModeText, theFourthDigitIsShownWhereItIsSet) {
  EXPECT_EQ(formatMode("0750"), "750 (rwxr-x---)");
  EXPECT_EQ(formatMode("2770"), "2770 (rwxrws---)");
  EXPECT_EQ(formatMode("7777"), "7777 (rwsrwsrwt)");
  EXPECT_EQ(formatMode("7000"), "7000 (--S--S--T)");
  EXPECT_EQ(formatMode("1755"), "1755 (rwxr-xr-t)");
}

}  // namespace
}  // namespace paddock::keelhouse
