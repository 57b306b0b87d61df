#include "platform/linux/acl/list_rules.h"

#include <gmock/gmock.h>

#include <utility>

namespace paddock::acl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

Rule naming(Permission permissions) { return {true, {}, permissions, 0}; }

// What is asked of which entry, when those at `deciding` decide.
struct Course {
  std::vector<std::pair<std::size_t, Permission>> asked;
  Permission undecided = 0;
};

Course courseOf(Permission asked, const std::vector<Rule>& rules,
                const std::vector<std::size_t>& deciding) {
  Course course;
  course.undecided = decideInOrder(asked, rules, [&](std::size_t at, Permission named) {
    course.asked.emplace_back(at, named);
    return std::find(deciding.begin(), deciding.end(), at) != deciding.end();
  });
  return course;
}

TEST(FirstMatch, PermissionIsDecidedByTheFirstEntryThatDecides) {
  const Course course = courseOf(
      kReadData | kWriteData | kExecute,
      {naming(kReadData), naming(kReadData | kWriteData), naming(kWriteData | kExecute | kDelete)},
      {1, 2});
  EXPECT_THAT(course.asked,
              ElementsAre(Pair(0, kReadData), Pair(1, kReadData | kWriteData), Pair(2, kExecute)));
  EXPECT_EQ(course.undecided, 0U);
}

TEST(FirstMatch, WhatNoEntryDecidesIsLeft) {
  EXPECT_EQ(courseOf(kReadData | kDelete, {naming(kReadData), naming(kDelete)}, {0}).undecided,
            kDelete);
  EXPECT_EQ(courseOf(kReadData, {}, {}).undecided, kReadData);
}

TEST(FirstMatch, NobodyIsAskedAboutWhatIsNotAskedFor) {
  EXPECT_THAT(courseOf(kReadData, {naming(kWriteData), naming(0)}, {0, 1}).asked, IsEmpty());
  EXPECT_THAT(courseOf(kReadData, {naming(kReadData), naming(kReadData)}, {0}).asked,
              ElementsAre(Pair(0, kReadData)));
}

TEST(ListSubject, IsForTheUserAndHisGroups) {
  const std::vector<std::uint32_t> gids{100, 200};
  EXPECT_TRUE(isFor({Subject::Kind::user, 1000}, 1000, gids));
  EXPECT_FALSE(isFor({Subject::Kind::user, 100}, 1000, gids));
  EXPECT_TRUE(isFor({Subject::Kind::group, 200}, 1000, gids));
  EXPECT_FALSE(isFor({Subject::Kind::group, 1000}, 1000, gids));
  EXPECT_TRUE(isFor({Subject::Kind::everyone, 0}, 1000, gids));
  EXPECT_FALSE(isFor({}, 0, gids));
}

TEST(ListSubject, IsForGroupsOfWhoHasNoUid) {
  EXPECT_FALSE(isFor({Subject::Kind::user, 0}, std::nullopt, {100}));
  EXPECT_TRUE(isFor({Subject::Kind::group, 100}, std::nullopt, {100}));
}

TEST(KernelBitsOfPermissions, AreThoseOfDataAndExecuting) {
  EXPECT_EQ(kernelBitsOf(kReadData), posix_acl::kRead);
  EXPECT_EQ(kernelBitsOf(kWriteData), posix_acl::kWrite);
  EXPECT_EQ(kernelBitsOf(kExecute), posix_acl::kExecute);
  EXPECT_EQ(kernelBitsOf(kAllPermissions & ~kDecisive), 0);
  EXPECT_EQ(kernelBitsOf(kAllPermissions), posix_acl::kAllBits);
}

}  // namespace
}  // namespace paddock::acl
