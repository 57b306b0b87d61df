#include "copyprivs/levels.h"

#include <gtest/gtest.h>

namespace paddock::copyprivs {
namespace {

InheritableACL* entryOf(std::uint32_t flags) {
  InheritableACL* entry = AllocInheritableACL();
  entry->flags = flags;
  return entry;
}

TEST(Levels, TheNearestFolderComesFirst) {
  const auto top = std::make_shared<const Levels>(entryOf(32), nullptr);
  const auto below = std::make_shared<const Levels>(entryOf(64), top);
  const InheritedACLComposite* first = below->composite();
  EXPECT_EQ(first->entries->flags, 64U);
  EXPECT_EQ(first->next->entries->flags, 32U);
  EXPECT_EQ(first->next->next, nullptr);
}

TEST(Levels, ThoseAboveStayAsLongAsThoseBelow) {
  auto top = std::make_shared<const Levels>(entryOf(32), nullptr);
  const auto below = std::make_shared<const Levels>(nullptr, top);
  top = nullptr;
  EXPECT_EQ(below->composite()->next->entries->flags, 32U);
}

int emptyOnesOf(const Levels::Pointer& levels) {
  int count = 0;
  for (const InheritedACLComposite* level = levels->composite();
       level != nullptr && level->entries == nullptr; level = level->next) {
    ++count;
  }
  return count;
}

TEST(Levels, AThirdEmptyOneIsLeftOut) {
  Levels::Pointer levels = std::make_shared<const Levels>(entryOf(32), nullptr);
  levels = Levels::withEmptyBelow(levels);
  EXPECT_EQ(emptyOnesOf(levels), 1);
  levels = Levels::withEmptyBelow(levels);
  EXPECT_EQ(emptyOnesOf(levels), 2);
  EXPECT_EQ(Levels::withEmptyBelow(levels), levels);
  levels = Levels::withEmptyBelow(std::make_shared<const Levels>(entryOf(64), levels));
  EXPECT_EQ(emptyOnesOf(levels), 1);
}

TEST(Levels, MoreThanAStackHasRoomForAreReleased) {
  Levels::Pointer lowest;
  for (int level = 0; level < 1'000'000; ++level) {
    lowest = std::make_shared<const Levels>(nullptr, lowest);
  }
  lowest = nullptr;
}

}  // namespace
}  // namespace paddock::copyprivs
