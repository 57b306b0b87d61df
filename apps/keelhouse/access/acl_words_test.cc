#include "keelhouse/access/acl_words.h"

#include <gtest/gtest.h>

#include <string>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {
namespace {

TEST(AclRights, HaveOneNameEach) {
  const std::pair<const char*, std::uint32_t> names[] = {
      {"read-data", 2},         {"list", 2},
      {"write-data", 4},        {"add-file", 4},
      {"execute", 8},           {"search", 8},
      {"delete", 16},           {"append", 32},
      {"add-folder", 32},       {"delete-child", 64},
      {"read-attributes", 128}, {"write-attributes", 256},
      {"read-extended", 512},   {"write-extended", 1024},
      {"read-security", 2048},  {"write-security", 4096},
      {"change-owner", 8192},   {"none", 0},
      {"read", 2698},           {"write", 1396},
      {"full", 16382},
  };
  for (const auto& [name, bits] : names) EXPECT_EQ(parseRights(name), bits) << name;
}

TEST(AclRights, AreCombined) {
  EXPECT_EQ(parseRights("read,write"), 2698U | 1396U);
  EXPECT_EQ(parseRights("list,List,DELETE"), 2U | 16U);
  EXPECT_EQ(parseRights("read,write,write-security,change-owner"), 16382U);
}

TEST(AclRights, RejectUnknownWords) {
  for (const char* text : {"", "reads", "read,", ",read", "read write", "none,read", "7", "r-x"}) {
    EXPECT_THROW(parseRights(text), Failure) << text;
  }
}

TEST(AclRights, FormatInFewestWords) {
  EXPECT_EQ(formatRights(0, true), "none");
  EXPECT_EQ(formatRights(16382, true), "full");
  EXPECT_EQ(formatRights(2698, true), "read");
  EXPECT_EQ(formatRights(2698 | 1396, true), "read,write");
  EXPECT_EQ(formatRights(2698 | 16, true), "read,delete");
  EXPECT_EQ(formatRights(2 | 4 | 8 | 32, true), "list,add-file,search,add-folder");
  EXPECT_EQ(formatRights(2 | 4 | 8 | 32, false), "read-data,write-data,execute,append");
}

TEST(AclRights, OmitMeaninglessBits) {
  EXPECT_EQ(formatRights(1 | 16384 | 0x80000000U, true), "none");
  EXPECT_EQ(formatRights(0xFFFFFFFF, true), "full");
}

TEST(AclRights, RoundTripUnchanged) {
  for (std::uint32_t bits = 0; bits <= acl::kAllPermissions; bits += 2) {
    ASSERT_EQ(parseRights(formatRights(bits, true)), bits);
    ASSERT_EQ(parseRights(formatRights(bits, false)), bits);
  }
}

TEST(AclInheritance, HasNameForEachFlag) {
  const std::pair<const char*, std::uint32_t> names[] = {
      {"inherit", 96}, {"file-inherit", 32}, {"directory-inherit", 64}, {"inherited", 16}};
  for (const auto& [name, flags] : names) {
    EXPECT_EQ(parseInheritance(name), flags) << name;
    EXPECT_EQ(formatInheritance(flags), name);
  }
  EXPECT_EQ(parseInheritance("inherit,limit-inherit,only-inherit"), 96U | 128U | 256U);
  EXPECT_EQ(parseInheritance("File-Inherit,Only-Inherit"), 32U | 256U);
}

TEST(AclInheritance, IsEmptyWithoutFlags) {
  EXPECT_EQ(formatInheritance(0), "");
  EXPECT_EQ(formatInheritance(1 | 2 | 8 | 512), "");
}

TEST(AclInheritance, RoundTripsUnchanged) {
  for (std::uint32_t flags = 16; flags <= acl::kAllFlags; flags += 16) {
    const bool isLimitOfNothing = (flags & 96U) == 0 && (flags & 384U) != 0;
    if (isLimitOfNothing) {
      EXPECT_THROW(parseInheritance(formatInheritance(flags)), Failure) << flags;
    } else {
      EXPECT_EQ(parseInheritance(formatInheritance(flags)), flags);
    }
  }
}

TEST(AclInheritance, RejectsUnknownWords) {
  for (const char* text : {"", "inherits", "inherit,", "-", "limit-inherit", "only-inherit",
                           "inherited,only-inherit"}) {
    EXPECT_THROW(parseInheritance(text), Failure) << text;
  }
}

}  // namespace
}  // namespace paddock::keelhouse
