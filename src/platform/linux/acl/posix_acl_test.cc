#include "platform/linux/acl/posix_acl.h"

#include <gtest/gtest.h>

namespace paddock::posix_acl {
namespace {

using namespace std::string_literals;  // NOLINT(google-build-using-namespace)

const std::string kVersion2 = "\x02\0\0\0"s;
const std::string kNobody = "\xFF\xFF\xFF\xFF"s;
const std::string kOwnerRwx = "\x01\0\x07\0"s + kNobody;
const std::string kUser1000Rw = "\x02\0\x06\0\xE8\x03\0\0"s;
const std::string kGroupRx = "\x04\0\x05\0"s + kNobody;
const std::string kGroup50R = "\x08\0\x04\0\x32\0\0\0"s;
const std::string kMaskRwx = "\x10\0\x07\0"s + kNobody;
const std::string kOthersNone = "\x20\0\0\0"s + kNobody;
const std::string kWhole =
    kVersion2 + kOwnerRwx + kUser1000Rw + kGroupRx + kGroup50R + kMaskRwx + kOthersNone;

Acl whole() {
  Acl acl;
  acl.classes = {7, 5, 0};
  acl.users = {{1000, 6}};
  acl.groups = {{50, 4}};
  acl.mask = 7;
  return acl;
}

TEST(PosixAcl, AModesDigitsAreItsClasses) {
  EXPECT_EQ(classesOf(0100754), (Classes{7, 5, 4}));
  EXPECT_EQ(modeOf({7, 5, 4}), 0754U);
  EXPECT_EQ(modeOf(classesOf(07777)), 0777U);
}

TEST(PosixAcl, WholeListRoundTripsByteForByte) {
  EXPECT_EQ(decode(kWhole), whole());
  EXPECT_EQ(encode(whole()), kWhole);
}

TEST(PosixAcl, ModeOnlyListNeedsNoMask) {
  const std::string minimal = kVersion2 + kOwnerRwx + kGroupRx + kOthersNone;
  Acl acl;
  acl.classes = {7, 5, 0};
  EXPECT_EQ(decode(minimal), acl);
  EXPECT_EQ(encode(acl), minimal);
}

TEST(PosixAcl, NamedEntriesAreWrittenById) {
  Acl acl = whole();
  acl.users = {{2000, 4}, {1000, 6}};
  const auto read = decode(encode(acl));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->users, (std::vector<Named>{{1000, 6}, {2000, 4}}));
}

TEST(PosixAcl, EveryShorterValueIsRefused) {
  for (std::size_t size = 0; size < kWhole.size(); ++size)
    EXPECT_FALSE(decode(std::string_view(kWhole).substr(0, size))) << size;
}

TEST(PosixAcl, WhatTheKernelRefusesIsRefused) {
  const auto refused = [](const std::string& value) { EXPECT_FALSE(decode(value)); };
  refused(kWhole + "x");
  refused(kWhole + kOthersNone);
  refused("\x01\0\0\0"s + kWhole.substr(4));
  refused(kVersion2);
  refused(kVersion2 + kOwnerRwx + kUser1000Rw + kGroupRx + kOthersNone);  // named without a mask
  refused(kVersion2 + kUser1000Rw + kOwnerRwx + kGroupRx + kMaskRwx + kOthersNone);
  refused(kVersion2 + kOwnerRwx + kOwnerRwx + kGroupRx + kOthersNone);
  refused(kVersion2 + kGroupRx + kOthersNone);
  refused(kVersion2 + kOwnerRwx + kOthersNone);
  refused(kVersion2 + kOwnerRwx + kGroupRx);
  refused(kVersion2 + "\x01\0\x08\0"s + kNobody + kGroupRx + kOthersNone);
  refused(kVersion2 + kOwnerRwx + "\x02\0\x06\0"s + kNobody + kGroupRx + kMaskRwx + kOthersNone);
  refused(kVersion2 + kOwnerRwx + kGroupRx + "\x40\0\x06\0"s + kNobody + kOthersNone);
}

TEST(PosixAcl, TheMaskBoundsTheOwningGroupAlone) {
  Acl acl = whole();
  acl.mask = 4;
  EXPECT_EQ(acl.effectiveClasses(), (Classes{7, 4, 0}));
  acl.mask.reset();
  EXPECT_EQ(acl.effectiveClasses(), (Classes{7, 5, 0}));
}

TEST(PosixAcl, TheComputedMaskBoundsNothing) {
  Acl acl;
  acl.classes = {7, 1, 7};
  acl.computeMask();
  EXPECT_FALSE(acl.mask);
  acl.groups = {{50, 4}};
  acl.computeMask();
  EXPECT_EQ(acl.mask, Bits{5});
  acl.users = {{1000, 2}};
  acl.computeMask();
  EXPECT_EQ(acl.mask, Bits{7});
}

TEST(PosixAcl, ComputedMaskIsNonemptyWhileOthersHaveBits) {
  Acl acl;
  acl.classes = {7, 0, 5};
  acl.users = {{1000, 0}};
  acl.computeMask();
  EXPECT_EQ(acl.mask, Bits{5});
  acl.classes.others = 0;
  acl.computeMask();
  EXPECT_EQ(acl.mask, Bits{0});
}

}  // namespace
}  // namespace paddock::posix_acl
