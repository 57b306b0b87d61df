// Values that do not decode, and descriptors that the format cannot hold.
#include <gtest/gtest.h>

#include "platform/linux/acl/nt_acl.h"
#include "support/nt_acl_samples.h"

namespace paddock::nt_acl {
namespace {

// Version 1 as Samba makes it: the descriptor starts at 8, the owner at 28, the group at 44, the
// list at 60, its two entries at 68 and 92.
std::string withByte(std::size_t at, int value) {
  std::string bytes = samples::madeBySamba(1);
  bytes[at] = static_cast<char>(value);
  return bytes;
}

struct Damage {
  const char* name;
  std::size_t at;
  int value;
};

class NtAclDamaged : public testing::TestWithParam<Damage> {};

TEST_P(NtAclDamaged, IsInvalid) {
  const auto [name, at, value] = GetParam();
  const std::string bytes = withByte(at, value);
  ASSERT_NE(bytes, samples::madeBySamba(1)) << name;
  EXPECT_EQ(decode(bytes), std::nullopt) << name;
}

INSTANTIATE_TEST_SUITE_P(
    NtAcl, NtAclDamaged,
    testing::Values(Damage{"VersionZero", 0, 0}, Damage{"VersionFive", 0, 5},
                    Damage{"AnotherUnionTag", 2, 2}, Damage{"NullPointer", 6, 0},
                    Damage{"DescriptorRevision", 8, 2}, Damage{"DescriptorReserved", 9, 1},
                    Damage{"ListThatTheControlWordDenies", 10, 0},
                    Damage{"OwnerInTheHeader", 12, 24}, Damage{"OwnerOnTheGroup", 12, 44},
                    Damage{"OwnerOutside", 13, 1}, Damage{"OwnerFarOutside", 15, 255},
                    Damage{"NoOwnerButItsBytes", 12, 0}, Damage{"GroupOnTheOwner", 16, 28},
                    Damage{"SystemListDenied", 20, 60}, Damage{"ListElsewhere", 24, 64},
                    Damage{"ListFarOutside", 27, 128}, Damage{"OwnerSidRevision", 28, 2},
                    Damage{"OwnerSidOfSixteen", 29, 16}, Damage{"OwnerSidTooLong", 29, 3},
                    Damage{"OwnerSidTooShort", 29, 1}, Damage{"ListRevisionThree", 60, 3},
                    Damage{"ListRevisionZero", 60, 0}, Damage{"ListReserved", 61, 1},
                    Damage{"ListTooLong", 62, 0x48}, Damage{"ListTooShort", 62, 0x40},
                    Damage{"ListShorterThanItsHeader", 62, 7}, Damage{"FewerEntries", 64, 1},
                    Damage{"MoreEntries", 64, 3}, Damage{"CountReserved", 66, 1},
                    Damage{"EntryTooLong", 70, 0x1c}, Damage{"EntryTooShort", 70, 0x14},
                    Damage{"EntryOfNoSize", 70, 0}, Damage{"EntryOddSize", 70, 0x19},
                    Damage{"LastEntryTooLong", 94, 0x28}, Damage{"LastEntryTooShort", 94, 0x20},
                    Damage{"EntrySidRevision", 76, 0}, Damage{"EntrySidOfSixteen", 77, 16},
                    Damage{"ObjectEntryThatIsNone", 68, 5}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(NtAclInvalid, EveryCutOfEveryVersion) {
  for (int version = 1; version <= 4; ++version) {
    const std::string whole = samples::madeBySamba(version);
    for (std::size_t length = 0; length < whole.size(); ++length)
      EXPECT_EQ(decode(whole.substr(0, length)), std::nullopt) << version << " at " << length;
  }
}

TEST(NtAclInvalid, BytesBehindTheEnd) {
  for (int version = 1; version <= 4; ++version)
    for (std::size_t count = 1; count <= 8; ++count)
      EXPECT_EQ(decode(samples::madeBySamba(version) + std::string(count, '\0')), std::nullopt)
          << version << " and " << count;
}

TEST(NtAclInvalid, BytesBetweenTheParts) {
  std::string bytes = samples::madeBySamba(1);
  bytes.insert(60, 4, '\0');
  bytes[24] = 64;
  EXPECT_EQ(decode(bytes), std::nullopt);
}

TEST(NtAclInvalid, OffsetsThatCountFromTheDescriptor) {
  std::string bytes = samples::madeBySamba(1);
  for (const std::size_t at : {12U, 16U, 24U}) bytes[at] = static_cast<char>(bytes[at] - 8);
  EXPECT_EQ(decode(bytes), std::nullopt);
}

TEST(NtAclInvalid, PaddingBehindTheSidOfAnOrdinaryEntry) {
  std::string bytes = samples::madeBySamba(1) + std::string(4, '\0');
  bytes[62] = 0x48;
  bytes[94] = 0x28;
  EXPECT_EQ(decode(bytes), std::nullopt);
  bytes[92] = 9;  // in an entry of another type it is the entry's own
  EXPECT_NE(decode(bytes), std::nullopt);
}

TEST(NtAclInvalid, NullPointerInLaterVersion) {
  for (int version = 2; version <= 4; ++version) {
    for (const std::size_t at : {6U, 8U}) {
      std::string bytes = samples::madeBySamba(version);
      for (std::size_t byte = at / 4 * 4; byte < at / 4 * 4 + 4; ++byte) bytes[byte] = 0;
      EXPECT_EQ(decode(bytes), std::nullopt) << version << " at " << at;
    }
  }
}

TEST(NtAclInvalid, ADescriptionWithoutEnd) {
  std::string bytes = samples::madeBySamba(4).substr(0, 78) + std::string(300, 'x');
  EXPECT_EQ(decode(bytes), std::nullopt);
}

TEST(NtAclInvalid, ADescriptionThatIsNotUtf8) {
  std::string bytes = samples::madeBySamba(4);
  ASSERT_EQ(bytes[78], 'p');
  bytes[78] = '\xF0';
  EXPECT_EQ(decode(bytes), std::nullopt);
}

// The descriptor of a resource manager may use the reserved byte.
TEST(NtAclInvalid, ControlWordEnablesReservedByte) {
  std::string bytes = withByte(9, 1);
  bytes[11] = static_cast<char>(0xC4);
  EXPECT_NE(decode(bytes), std::nullopt);
}

// A flipped bit may make another valid value (in a mask, say). It must not make one that the
// descriptor's own bytes contradict, nor one that reads differently when it is written again.
TEST(NtAclInvalid, EveryFlippedBitIsInvalidOrAnotherValue) {
  for (int version = 1; version <= 4; ++version) {
    const std::string whole = samples::madeBySamba(version);
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
      std::string bytes = whole;
      bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
      const auto read = decode(bytes);
      if (!read) continue;
      ASSERT_TRUE(read->list) << version << " bit " << bit;
      EXPECT_EQ(read->list->size(), 2U) << version << " bit " << bit;
      const auto again = encode(*read);
      ASSERT_TRUE(again) << version << " bit " << bit;
      EXPECT_EQ(decode(*again), read) << version << " bit " << bit;
    }
  }
}

// ---- Limits ----

Descriptor ofEntries(std::size_t count, std::size_t subAuthorities) {
  const Ace ace{kAllowed, 0, 1, Sid{5, std::vector<std::uint32_t>(subAuthorities, 1)}, {}};
  return {kControlWritten, Sid{22, {1, 0}}, Sid{22, {2, 0}}, std::vector<Ace>(count, ace)};
}

TEST(NtAclLimits, AThousandEntriesAreValid) {
  const Descriptor descriptor = ofEntries(kMaximumEntries, 5);
  const auto value = encode(descriptor);
  ASSERT_TRUE(value);
  EXPECT_EQ(decode(*value), descriptor);
}

TEST(NtAclLimits, EntriesBeyondThousandAreNeitherWrittenNorRead) {
  EXPECT_EQ(encode(ofEntries(kMaximumEntries + 1, 1)), std::nullopt);
  std::string bytes = encode(ofEntries(kMaximumEntries, 1)).value();
  const std::size_t size = 8 + (kMaximumEntries + 1) * 20;
  bytes[62] = static_cast<char>(size & 0xFFU);
  bytes[63] = static_cast<char>(size >> 8U);
  bytes[64] = static_cast<char>((kMaximumEntries + 1) & 0xFF);
  bytes += bytes.substr(bytes.size() - 20);
  EXPECT_EQ(decode(bytes), std::nullopt);
}

TEST(NtAclLimits, ListLengthIsLimitedByItsHeader) {
  // An entry takes 16 bytes and 4 for each sub-authority; the header takes 8.
  EXPECT_TRUE(encode(ofEntries((65535 - 8) / 76, 15)));
  EXPECT_EQ(encode(ofEntries((65535 - 8) / 76 + 1, 15)), std::nullopt);
}

TEST(NtAclLimits, SidsThatDoNotFitAreNotWritten) {
  EXPECT_EQ(encode({0x8000, Sid{5, std::vector<std::uint32_t>(16, 1)}, {}, {}}), std::nullopt);
  EXPECT_EQ(encode({0x8000, {}, Sid{std::uint64_t{1} << 48U, {}}, {}}), std::nullopt);
  EXPECT_EQ(encode(ofEntries(1, 16)), std::nullopt);
}

TEST(NtAclLimits, ListDeniedByControlWordIsNotWritten) {
  Descriptor descriptor = ofEntries(1, 1);
  descriptor.control = 0x8000;
  EXPECT_EQ(encode(descriptor), std::nullopt);
}

TEST(NtAclLimits, MalformedForeignEntryIsNotWritten) {
  const std::string entry = hexBytes("09 00 1400 01000000 01 01 000000000001 00000000");
  Ace ace{0x09, 0, 1, Sid{1, {0}}, entry};
  const auto encoded = [](const Ace& foreign) {
    return encode({kControlWritten, {}, {}, {{foreign}}});
  };
  ASSERT_TRUE(encoded(ace));
  for (std::size_t length = 0; length < entry.size(); ++length) {
    ace.foreign = entry.substr(0, length);
    EXPECT_EQ(encoded(ace), std::nullopt) << length;
  }
  ace.foreign = entry + entry;
  EXPECT_EQ(encoded(ace), std::nullopt);
  ace = {kAllowed, 0, 1, Sid{1, {0}}, entry};
  EXPECT_EQ(encoded(ace), std::nullopt);
}

}  // namespace
}  // namespace paddock::nt_acl
