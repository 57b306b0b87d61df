#include "platform/linux/acl/kernel_access.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace paddock {
namespace {

constexpr std::uint32_t kAnna = 1000;
constexpr std::uint32_t kBert = 1001;
constexpr std::uint32_t kStaff = 50;
constexpr std::uint32_t kCrew = 51;
constexpr acl::Permission kEverybodys = 128 | 2048;

KernelUser anna(std::vector<std::uint32_t> gids = {}) { return {kAnna, std::move(gids)}; }
KernelObject fileWith(mode_t mode) { return {kBert, kStaff, S_IFREG | mode, {}}; }
KernelObject folderWith(mode_t mode) { return {kBert, kStaff, S_IFDIR | mode, {}}; }
KernelObject hers(KernelObject object) {
  object.uid = kAnna;
  return object;
}
// With the mask in the mode's middle, where the kernel keeps it.
KernelObject fileWithAcl(const posix_acl::Acl& acl) {
  posix_acl::Classes classes = acl.classes;
  classes.group = acl.mask.value();
  return {kBert, kStaff, S_IFREG | posix_acl::modeOf(classes), acl};
}
posix_acl::Acl aclOf(std::vector<posix_acl::Named> users, std::vector<posix_acl::Named> groups,
                     posix_acl::Bits mask, posix_acl::Classes classes = {7, 0, 0}) {
  return {classes, std::move(users), std::move(groups), mask};
}

void expectBits(const KernelObject& object, const KernelUser& user, KernelClass who,
                posix_acl::Bits bits) {
  const KernelBits found = kernelBits(object, user);
  EXPECT_EQ(found.who, who);
  EXPECT_EQ(found.bits, bits);
}

TEST(KernelBits, TheModesClassesFollowOneAnother) {
  expectBits(hers(fileWith(0421)), anna({kStaff}), KernelClass::owner, 4);
  expectBits(fileWith(0421), anna({kCrew, kStaff}), KernelClass::group, 2);
  expectBits(fileWith(0421), anna({kCrew}), KernelClass::others, 1);
}

TEST(KernelBits, NamedUserGetsEntryWithinMask) {
  expectBits(fileWithAcl(aclOf({{kAnna, 7}}, {{kStaff, 2}}, 5)), anna({kStaff}),
             KernelClass::namedUser, 5);
}

TEST(KernelBits, TheOwnersBitsKnowNoMask) {
  expectBits(hers(fileWithAcl(aclOf({{kAnna, 1}}, {}, 1))), anna(), KernelClass::owner, 7);
}

TEST(KernelBits, EachGroupLetsThroughWhatItHas) {
  const auto file = fileWithAcl(aclOf({}, {{kCrew, 3}}, 6, {7, 4, 7}));
  expectBits(file, anna({kStaff, kCrew}), KernelClass::group, 6);
  expectBits(file, anna({kCrew}), KernelClass::group, 2);
  expectBits(file, anna({kStaff}), KernelClass::group, 4);
  expectBits(file, anna(), KernelClass::others, 7);
}

TEST(KernelBits, WhatNoGroupHasTogetherIsApart) {
  const auto isApart = [](const posix_acl::Acl& acl) {
    return kernelBits(fileWithAcl(acl), anna({kStaff, kCrew})).isApart;
  };
  EXPECT_TRUE(isApart(aclOf({}, {{kCrew, 3}}, 7, {7, 4, 0})));
  EXPECT_FALSE(isApart(aclOf({}, {{kCrew, 3}}, 3, {7, 4, 0})));
  EXPECT_FALSE(isApart(aclOf({}, {{kCrew, 7}}, 7, {7, 4, 0})));
  EXPECT_FALSE(isApart(aclOf({{kAnna, 7}}, {{kCrew, 3}}, 7, {7, 4, 0})));
}

TEST(KernelBits, WritingAndSearchingAreApartByThemselves) {
  const auto isWritingApart = [](const posix_acl::Acl& acl) {
    return kernelBits(fileWithAcl(acl), anna({kStaff, kCrew})).isWritingApart;
  };
  EXPECT_FALSE(isWritingApart(aclOf({}, {{kCrew, 3}}, 7, {7, 5, 0}))) << "reading is the other's";
  EXPECT_TRUE(isWritingApart(aclOf({}, {{kCrew, 2}}, 7, {7, 5, 0})));
  EXPECT_FALSE(isWritingApart(aclOf({}, {{kCrew, 7}}, 7, {7, 1, 0})));
}

TEST(KernelBits, AclWithEmptyMaskIsIgnored) {
  const auto file = fileWithAcl(aclOf({{kAnna, 7}}, {}, 0, {7, 7, 4}));
  expectBits(file, anna(), KernelClass::others, 4);
  expectBits(file, anna({kStaff}), KernelClass::group, 0);
}

TEST(KernelBits, AreThoseOfTheFirstClassThatFits) {
  constexpr std::uint32_t kNight = 200;
  const posix_acl::Acl acl = aclOf({{kAnna, 6}}, {{kCrew, 5}, {kNight, 2}}, 6, {7, 4, 1});
  const auto bitsOf = [&acl](std::uint32_t uid, const std::vector<std::uint32_t>& gids,
                             std::uint32_t owningGroup) {
    return bitsByAcl(acl, owningGroup, uid, gids).bits;
  };
  EXPECT_EQ(bitsOf(kAnna, {kAnna, kCrew, kNight}, 7), 6);
  EXPECT_EQ(bitsOf(kBert, {kBert, kNight}, 7), 2);
  EXPECT_EQ(bitsOf(1004, {1004, kCrew, kNight}, 7), 6)
      << "what either group gives, within the mask";
  EXPECT_EQ(bitsOf(kBert, {kBert, kNight}, kBert), 6);
  EXPECT_EQ(bitsOf(5, {5}, 7), 1);
}

TEST(AclInForce, IsTheModesWhereTheMaskIsEmpty) {
  const posix_acl::Acl acl = aclOf({{kAnna, 7}}, {}, 0, {7, 7, 4});
  EXPECT_EQ(aclInForce(acl, S_IFREG | 0704), (posix_acl::Acl{{7, 0, 4}, {}, {}, {}}));
  EXPECT_EQ(aclInForce(std::nullopt, S_IFREG | 0754), (posix_acl::Acl{{7, 5, 4}, {}, {}, {}}));
  EXPECT_EQ(aclInForce(acl, S_IFREG | 0714), acl);
}

TEST(KernelPermissions, AreThoseOfTheThreeBits) {
  EXPECT_EQ(kernelPermissions(fileWith(0), nullptr, anna()), kEverybodys);
  EXPECT_EQ(kernelPermissions(fileWith(4), nullptr, anna()), 2 | 512 | kEverybodys);
  EXPECT_EQ(kernelPermissions(fileWith(2), nullptr, anna()), 4 | 32 | 1024 | kEverybodys);
  EXPECT_EQ(kernelPermissions(folderWith(2), nullptr, anna()), 4 | 32 | 64 | 1024 | kEverybodys);
  EXPECT_EQ(kernelPermissions(fileWith(1), nullptr, anna()), 8 | kEverybodys);
}

TEST(KernelPermissions, AttributesAndModeAreTheOwnersToChange) {
  EXPECT_EQ(kernelPermissions(hers(fileWith(0)), nullptr, anna()), 256 | 4096 | kEverybodys);
}

TEST(KernelPermissions, DeletingIsUpToTheFolderAround) {
  const auto deletes = [](const KernelObject& object, const KernelObject& folder) {
    return (kernelPermissions(object, &folder, anna()) & 16U) != 0;
  };
  EXPECT_TRUE(deletes(fileWith(0), folderWith(0003)));
  EXPECT_FALSE(deletes(fileWith(0), folderWith(0002)));
  EXPECT_FALSE(deletes(fileWith(0777), folderWith(0775)));
  EXPECT_FALSE(deletes(fileWith(0777), folderWith(01777)));
  EXPECT_TRUE(deletes(hers(fileWith(0)), folderWith(01777)));
  EXPECT_TRUE(deletes(fileWith(0), hers(folderWith(01777))));
}

}  // namespace
}  // namespace paddock
