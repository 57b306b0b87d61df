#include "keelhouse/size_text.h"

#include <gtest/gtest.h>

#include <limits>

namespace paddock::keelhouse {
namespace {

TEST(SizeText, isInBytesBelowOneKibibyte) {
  EXPECT_EQ(formatSize(0), "0 B");
  EXPECT_EQ(formatSize(1), "1 B");
  EXPECT_EQ(formatSize(1023), "1023 B");
}

TEST(SizeText, isInTheLargestUnitThatGivesOne) {
  EXPECT_EQ(formatSize(1024), "1.0 KiB");
  EXPECT_EQ(formatSize(1536), "1.5 KiB");
  EXPECT_EQ(formatSize(10240), "10 KiB");
  EXPECT_EQ(formatSize(std::uint64_t{3} << 20U), "3.0 MiB");
  EXPECT_EQ(formatSize(std::uint64_t{123} << 30U), "123 GiB");
  EXPECT_EQ(formatSize(std::uint64_t{1} << 40U), "1.0 TiB");
  EXPECT_EQ(formatSize(std::uint64_t{1} << 50U), "1.0 PiB");
  EXPECT_EQ(formatSize(std::numeric_limits<std::uint64_t>::max()), "16 EiB");
}

TEST(SizeText, isRoundedToTheNearest) {
  EXPECT_EQ(formatSize(10 * 1024 - 1), "10 KiB");
  EXPECT_EQ(formatSize(10 * 1024 - 512), "9.5 KiB");
  EXPECT_EQ(formatSize(1048575), "1.0 MiB");
  EXPECT_EQ(formatSize(1047552), "1023 KiB");
  EXPECT_EQ(formatSize(1024 * 10 + 511), "10 KiB");
  EXPECT_EQ(formatSize(1024 * 10 + 513), "11 KiB");
}

}  // namespace
}  // namespace paddock::keelhouse
