#include "platform/linux/acl/nt_acl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/nt_acl_samples.h"

namespace paddock::nt_acl {
namespace {

using testing::ElementsAre;

const std::string kEnvelope = "0100 0100 00000200";  // version, union tag, pointer

// ---- Written out by hand ----

// Owner S-1-22-1-0 at 28, group S-1-22-2-100 at 44, the list at 60: S-1-22-1-1000 allowed to read.
const std::string kOneEntry = kEnvelope +
                              "01 00 0484 1c000000 2c000000 00000000 3c000000"
                              "01 02 000000000016 01000000 00000000"
                              "01 02 000000000016 02000000 64000000"
                              "02 00 2000 0100 0000"
                              "00 03 1800 89001200 01 02 000000000016 01000000 e8030000";

Descriptor oneEntry() {
  return {kControlWritten,
          Sid{22, {1, 0}},
          Sid{22, {2, 100}},
          {{Ace{kAllowed, kObjectInherit | kContainerInherit, 0x120089, Sid{22, {1, 1000}}, {}}}}};
}

TEST(NtAcl, DecodesAValueWrittenByHand) { EXPECT_EQ(decode(hexBytes(kOneEntry)), oneEntry()); }

TEST(NtAcl, EncodesTheBytesWrittenByHand) { EXPECT_EQ(encode(oneEntry()), hexBytes(kOneEntry)); }

TEST(NtAcl, AnEmptyListIsNotAnAbsentOne) {
  const Descriptor empty{kControlWritten, {}, {}, std::vector<Ace>{}};
  const std::string bytes = hexBytes(kEnvelope +
                                     "01 00 0484 00000000 00000000 00000000 1c000000"
                                     "02 00 0800 0000 0000");
  EXPECT_EQ(encode(empty), bytes);
  EXPECT_EQ(decode(bytes), empty);
}

TEST(NtAcl, AnAbsentListIsADescriptorWithoutOne) {
  const Descriptor absent{kControlWritten, {}, {}, {}};
  const std::string bytes = hexBytes(kEnvelope + "01 00 0484 00000000 00000000 00000000 00000000");
  EXPECT_EQ(encode(absent), bytes);
  EXPECT_EQ(decode(bytes), absent);
}

TEST(NtAcl, AuthorityIsBigEndianAndSubauthoritiesLittleEndian) {
  const Descriptor descriptor{0x8000, Sid{0x0102030405A6, {0x01020304}}, {}, {}};
  const std::string bytes = hexBytes(kEnvelope +
                                     "01 00 0080 1c000000 00000000 00000000 00000000"
                                     "01 01 0102030405a6 04030201");
  EXPECT_EQ(encode(descriptor), bytes);
  EXPECT_EQ(decode(bytes), descriptor);
}

TEST(NtAcl, SidsHoldNoneToFifteenSubAuthorities) {
  for (std::size_t count = 0; count <= 15; ++count) {
    const Descriptor descriptor{0x8000, Sid{5, std::vector<std::uint32_t>(count, 7)}, {}, {}};
    const auto value = encode(descriptor);
    ASSERT_TRUE(value);
    EXPECT_EQ(decode(*value), descriptor) << count;
  }
}

TEST(NtAcl, TheOrderOfEntriesIsKept) {
  Descriptor descriptor = oneEntry();
  descriptor.list = {{Ace{kAllowed, 0, 1, Sid{1, {0}}, {}}, Ace{kDenied, 0, 2, Sid{1, {0}}, {}},
                      Ace{kAllowed, kInherited, 4, Sid{1, {0}}, {}}}};
  const auto read = decode(encode(descriptor).value());
  ASSERT_TRUE(read && read->list);
  EXPECT_EQ(*read->list, *descriptor.list);
}

TEST(NtAcl, EveryMaskAndFlagBitIsKept) {
  for (unsigned bit = 0; bit < 32; ++bit) {
    Descriptor descriptor = oneEntry();
    descriptor.list->front().mask = 1U << bit;
    descriptor.list->front().flags = static_cast<std::uint8_t>(1U << bit % 8);
    EXPECT_EQ(decode(encode(descriptor).value()), descriptor) << bit;
  }
}

TEST(NtAcl, PartsMayStandInAnyOrder) {
  const std::string bytes = kEnvelope +
                            "01 00 0484 4c000000 3c000000 00000000 1c000000"
                            "02 00 2000 0100 0000"
                            "00 03 1800 89001200 01 02 000000000016 01000000 e8030000"
                            "01 02 000000000016 02000000 64000000"
                            "01 02 000000000016 01000000 00000000";
  EXPECT_EQ(decode(hexBytes(bytes)), oneEntry());
}

// ---- Made by Samba's own tools ----

TEST(NtAcl, DecodesWhatSambaWritesInEachVersion) {
  for (int version = 1; version <= 4; ++version)
    EXPECT_EQ(decode(samples::madeBySamba(version)), samples::sambaDescriptor()) << version;
}

// Samba's text parser gives every list revision 4; without object entries 2 says the same.
TEST(NtAcl, EncodesSambaBytesExceptListRevision) {
  std::string expected = samples::madeBySamba(1);
  ASSERT_EQ(expected[60], 4);
  expected[60] = 2;
  EXPECT_EQ(encode(samples::sambaDescriptor()), expected);
}

// from_sddl("O:S-1-22-1-0D:(OA;CI;FR;bf967aba-0de6-11d0-a285-00aa003049e2;;WD)(A;;FR;;;WD)")
const std::string kObjectEntry =
    "0100010000000200010004801c00000000000000000000002c00000001020000"
    "0000001601000000000000000400440002000000050228008900120001000000"
    "ba7a96bfe60dd011a28500aa003049e201010000000000010000000000001400"
    "89001200010100000000000100000000";

TEST(NtAcl, ObjectEntryRoundTripsUnchangedWithItsSid) {
  const std::string bytes = hexBytes(kObjectEntry);
  const auto read = decode(bytes);
  ASSERT_TRUE(read && read->list);
  const Ace expected{0x05, kContainerInherit, 0x120089, Sid{1, {0}}, bytes.substr(52, 40)};
  const Ace ordinary{kAllowed, 0, 0x120089, Sid{1, {0}}, {}};
  EXPECT_THAT(*read->list, ElementsAre(expected, ordinary));
  EXPECT_EQ(encode(*read), bytes);
}

TEST(NtAcl, OnlyFlagsOfForeignEntryMayChange) {
  auto descriptor = decode(hexBytes(kObjectEntry)).value();
  Ace& foreign = descriptor.list->front();
  foreign.flags |= kInherited;
  std::string expected = hexBytes(kObjectEntry);
  expected[53] = static_cast<char>(kContainerInherit | kInherited);
  EXPECT_EQ(encode(descriptor), expected);
  foreign.mask ^= 1U;
  EXPECT_EQ(encode(descriptor), std::nullopt);
}

// from_sddl("O:S-1-22-1-0G:S-1-22-2-0D:(A;;FR;;;WD)S:AI(AU;SA;FA;;;WD)")
const std::string kSystemList =
    "0100010000000200010014881c0000002c0000003c0000005800000001020000"
    "0000001601000000000000000102000000000016020000000000000004001c00"
    "0100000002401400ff01000001010000000000010000000004001c0001000000"
    "0000140089001200010100000000000100000000";

TEST(NtAcl, ASystemListIsCheckedAndLeftOut) {
  const auto read = decode(hexBytes(kSystemList));
  ASSERT_TRUE(read && read->list);
  EXPECT_THAT(*read->list, ElementsAre(Ace{kAllowed, 0, 0x120089, Sid{1, {0}}, {}}));
  std::string damaged = hexBytes(kSystemList);
  damaged[60] = 3;
  EXPECT_EQ(decode(damaged), std::nullopt);
}

// ---- Other types ----

// Of type 9, allowed with a condition, whose bytes stand behind the SID.
TEST(NtAcl, BytesAfterSidOfUnknownTypeAreKept) {
  const std::string bytes = hexBytes(kEnvelope +
                                     "01 00 0484 00000000 00000000 00000000 1c000000"
                                     "02 00 2400 0100 0000"
                                     "09 00 1c00 ff011f00 01 01 000000000001 00000000"
                                     "61727478 00000000");
  const auto read = decode(bytes);
  ASSERT_TRUE(read && read->list);
  EXPECT_THAT(*read->list, ElementsAre(Ace{0x09, 0, 0x1F01FF, Sid{1, {0}}, bytes.substr(36)}));
  EXPECT_EQ(encode(*read), bytes);
}

TEST(NtAcl, BothGuidsOfObjectEntryAreSkipped) {
  const std::string guid = "00112233445566778899aabbccddeeff";
  const std::string bytes = hexBytes(kEnvelope +
                                     "01 00 0484 00000000 00000000 00000000 1c000000"
                                     "04 00 4000 0100 0000"
                                     "06 00 3800 01000000 03000000" +
                                     guid + guid + "01 01 000000000001 00000000");
  const auto read = decode(bytes);
  ASSERT_TRUE(read && read->list);
  EXPECT_EQ(read->list->front().sid, (Sid{1, {0}}));
  EXPECT_EQ(encode(*read), bytes);
}

}  // namespace
}  // namespace paddock::nt_acl
