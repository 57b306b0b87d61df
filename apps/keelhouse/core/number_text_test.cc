#include "keelhouse/core/number_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <utility>
#include <vector>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

TEST(SizeText, IsInBytesBelowOneKibibyte) {
  EXPECT_EQ(formatSize(0), "0 B");
  EXPECT_EQ(formatSize(1), "1 B");
  EXPECT_EQ(formatSize(1023), "1023 B");
}

TEST(SizeText, UsesLargestUnitYieldingAtLeastOne) {
  EXPECT_EQ(formatSize(1024), "1.0 KiB");
  EXPECT_EQ(formatSize(1536), "1.5 KiB");
  EXPECT_EQ(formatSize(10240), "10 KiB");
  EXPECT_EQ(formatSize(std::uint64_t{3} << 20U), "3.0 MiB");
  EXPECT_EQ(formatSize(std::uint64_t{123} << 30U), "123 GiB");
  EXPECT_EQ(formatSize(std::uint64_t{1} << 40U), "1.0 TiB");
  EXPECT_EQ(formatSize(std::uint64_t{1} << 50U), "1.0 PiB");
  EXPECT_EQ(formatSize(std::numeric_limits<std::uint64_t>::max()), "16 EiB");
}

TEST(SizeText, IsRoundedToNearest) {
  EXPECT_EQ(formatSize(10 * 1024 - 1), "10 KiB");
  EXPECT_EQ(formatSize(10 * 1024 - 512), "9.5 KiB");
  EXPECT_EQ(formatSize(1048575), "1.0 MiB");
  EXPECT_EQ(formatSize(1047552), "1023 KiB");
  EXPECT_EQ(formatSize(1024 * 10 + 511), "10 KiB");
  EXPECT_EQ(formatSize(1024 * 10 + 513), "11 KiB");
}

TEST(SizeText, ParsesCommonNotations) {
  const std::vector<std::pair<const char*, std::uint64_t>> sizes = {{"0", 0},
                                                                    {"4096", 4096},
                                                                    {"12B", 12},
                                                                    {"1k", 1024},
                                                                    {"10G", 10ULL << 30U},
                                                                    {"500MiB", 500ULL << 20U},
                                                                    {"1.5T", 3ULL << 39U},
                                                                    {"200 kB", 200'000},
                                                                    {"0.5 gib", 1ULL << 29U},
                                                                    {"2p", 2ULL << 50U},
                                                                    {"7E", 7ULL << 60U}};
  for (const auto& [text, bytes] : sizes) EXPECT_EQ(parseSize(text), bytes) << text;
}

TEST(SizeText, RejectsMalformedSizes) {
  for (const char* text : {"", " ", "G", "-1", "+1", "1GG", "1iB", "1 G x", "1,5G", "0x10", "1e3",
                           "nan", "inf", ".5G", "8E", "99999999999999999999", "10X"}) {
    EXPECT_EQ(parseSize(text), std::nullopt) << text;
  }
}

using ::testing::HasSubstr;

TEST(ModeText, ThreeDigitsLeaveFourthUnset) {
  for (const char* text : {"750", "000", "777"}) {
    EXPECT_EQ(parseMode(text).permissions, text);
    EXPECT_EQ(parseMode(text).bits, std::nullopt);
  }
}

TEST(ModeText, FourDigitsAreBitsAndPermissions) {
  for (const char* text : {"0750", "2770", "7777", "1000"}) {
    const TypedMode mode = parseMode(text);
    EXPECT_EQ(mode.bits.value_or("") + mode.permissions, text);
    EXPECT_EQ(mode.permissions.size(), 3U);
  }
}

TEST(ModeText, RejectsOtherTexts) {
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

TEST(ModeText, IsShownWithLetters) {
  EXPECT_EQ(formatMode("750"), "750 (rwxr-x---)");
  EXPECT_EQ(formatMode("000"), "000 (---------)");
  EXPECT_EQ(formatMode("421"), "421 (r---w---x)");
  EXPECT_EQ(formatMode("7x9"), "7x9");
  EXPECT_EQ(formatMode(""), "");
}

TEST(ModeText, FourthDigitIsShownWhenSet) {
  EXPECT_EQ(formatMode("0750"), "750 (rwxr-x---)");
  EXPECT_EQ(formatMode("2770"), "2770 (rwxrws---)");
  EXPECT_EQ(formatMode("7777"), "7777 (rwsrwsrwt)");
  EXPECT_EQ(formatMode("7000"), "7000 (--S--S--T)");
  EXPECT_EQ(formatMode("1755"), "1755 (rwxr-xr-t)");
}

}  // namespace

}  // namespace paddock::keelhouse
