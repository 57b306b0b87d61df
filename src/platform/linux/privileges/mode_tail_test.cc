#include "platform/linux/privileges/mode_tail.h"

#include <gtest/gtest.h>

#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/sid_forms.h"

namespace paddock::nt_acl {
namespace {

const Sid kOwner{22, {1, 1000}};
const Sid kGroup{22, {2, 100}};
const Sid kEveryone{1, {0}};
const Sid kSomebody{22, {1, 1001}};
const Ace kMarker{kAllowed, 0, 0, markerSid(), {}};

Ace allowed(const Sid& sid, std::uint32_t mask, std::uint8_t flags = 0) {
  return {kAllowed, flags, mask, sid, {}};
}
Ace denied(const Sid& sid, std::uint32_t mask, std::uint8_t flags = 0) {
  return {kDenied, flags, mask, sid, {}};
}

TailSource source(mode_t mode, bool isFolder = false) {
  return {1000, 100, posix_acl::classesOf(mode), isFolder};
}

std::vector<Ace> joined(std::vector<Ace> list, const std::vector<Ace>& more) {
  list.insert(list.end(), more.begin(), more.end());
  return list;
}

// The masks, written out as numbers: everybody's 0x120080, reading 0x9, writing 0x116, executing
// 0x20, removing from a folder 0x40, the owner's 0x40100.

TEST(ModeTail, FileOfMode644HasOneEntryPerClass) {
  EXPECT_EQ(withTail({}, source(0644)),
            (std::vector<Ace>{kMarker, allowed(kOwner, 0x16019F), allowed(kGroup, 0x120089),
                              allowed(kEveryone, 0x120089)}));
}

TEST(ModeTail, FolderWriteIncludesRemoval) {
  EXPECT_EQ(withTail({}, source(0750, true)),
            (std::vector<Ace>{kMarker, allowed(kOwner, 0x1601FF), allowed(kGroup, 0x1200A9),
                              allowed(kEveryone, 0x120080)}));
}

TEST(ModeTail, EarlierClassIsDeniedBitsOfLaterOnes) {
  EXPECT_EQ(withTail({}, source(0027)),
            (std::vector<Ace>{kMarker, denied(kOwner, 0x3F & ~0x100), allowed(kOwner, 0x160180),
                              denied(kGroup, 0x29), allowed(kGroup, 0x120196),
                              allowed(kEveryone, 0x1201BF)}));
}

TEST(ModeTail, OwnerMayWriteAttributesInAnyMode) {
  for (mode_t mode = 0; mode <= 0777; ++mode)
    for (const Ace& ace : withTail({}, source(mode)))
      if (ace.type == kDenied && ace.sid == kOwner) {
        EXPECT_EQ(ace.mask & (kWriteAttributesMask | kWriteSecurityMask), 0U) << mode;
      }
}

// What the three classes get from the list, entries judged in order as an SMB server does.
std::uint32_t grantedTo(const std::vector<Ace>& list, const std::vector<Sid>& sids) {
  std::uint32_t granted = 0;
  std::uint32_t refused = 0;
  for (const Ace& ace : list) {
    if (std::find(sids.begin(), sids.end(), ace.sid) == sids.end()) continue;
    if ((ace.flags & kInheritOnly) != 0) continue;
    if (ace.type == kAllowed) granted |= ace.mask & ~refused;
    if (ace.type == kDenied) refused |= ace.mask & ~granted;
  }
  return granted;
}

// The digit of a mode that the mask stands for.
unsigned digit(std::uint32_t mask) {
  return ((mask & 1U) != 0 ? 4U : 0U) | ((mask & 2U) != 0 ? 2U : 0U) |
         ((mask & 0x20U) != 0 ? 1U : 0U);
}

TEST(ModeTail, EveryModeGivesEachClassItsOwnDigit) {
  for (mode_t mode = 0; mode <= 0777; ++mode) {
    const auto list = withTail({}, source(mode, true));
    EXPECT_EQ(digit(grantedTo(list, {kOwner, kGroup, kEveryone})), mode >> 6U) << mode;
    EXPECT_EQ(digit(grantedTo(list, {kOwner, kEveryone})), mode >> 6U) << mode;
    EXPECT_EQ(digit(grantedTo(list, {kGroup, kEveryone})), (mode >> 3U) & 7U) << mode;
    EXPECT_EQ(digit(grantedTo(list, {kEveryone})), mode & 7U) << mode;
  }
}

TEST(ModeTail, EveryTailIsRecognised) {
  const std::vector<Ace> plain{allowed(kSomebody, 0x120089)};
  const std::vector<Ace> inheritable{allowed(kSomebody, 0x120089, kContainerInherit)};
  for (mode_t mode = 0; mode <= 0777; ++mode) {
    for (const bool isFolder : {false, true}) {
      for (const auto& entries : {plain, inheritable, {}}) {
        const SplitList split = withoutTail(withTail(entries, source(mode, isFolder)), isFolder);
        EXPECT_FALSE(split.complete) << mode;
        EXPECT_EQ(split.entries, entries) << mode;
        EXPECT_EQ(split.tail, source(mode, isFolder)) << mode;
      }
    }
  }
}

TEST(ModeTail, FolderWithInheritableEntriesPassesModeOn) {
  const std::vector<Ace> entries{allowed(kSomebody, 0x120089, kObjectInherit)};
  constexpr std::uint8_t kFlags = 0x0B;
  EXPECT_EQ(
      withTail(entries, source(0755, true)),
      joined(entries,
             {kMarker, allowed(kOwner, 0x1601FF), allowed(kGroup, 0x1200A9),
              allowed(kEveryone, 0x1200A9), allowed(creatorOwnerSid(), 0x1701FF, kFlags),
              allowed(creatorGroupSid(), 0x1200A9, kFlags), allowed(kEveryone, 0x1200A9, kFlags)}));
}

TEST(ModeTail, CreatorCanUseObjectDespiteFolderOwnerBits) {
  const std::vector<Ace> entries{allowed(kSomebody, 0x1200A9, kContainerInherit)};
  const auto list = withTail(entries, source(0000, true));
  const auto found = std::find_if(list.begin(), list.end(), [](const Ace& ace) {
    return ace.sid == Sid{3, {0}};
  });
  ASSERT_NE(found, list.end());
  EXPECT_EQ(found->mask, 0x1701FFU);
}

TEST(ModeTail, CreatorGroupIsDeniedBitsOnlyOthersHave) {
  const std::vector<Ace> entries{allowed(kSomebody, 0x1200A9, kContainerInherit)};
  const auto list = withTail(entries, source(0705, true));
  ASSERT_EQ(list.size(), 10U);
  EXPECT_EQ(list[7], denied(creatorGroupSid(), 0x29, 0x0B));
}

TEST(ModeTail, OnAFileNothingIsPassedOn) {
  const std::vector<Ace> entries{allowed(kSomebody, 0x1200A9, kContainerInherit)};
  EXPECT_EQ(withTail(entries, source(0755)).size(), 5U);
}

TEST(ModeTail, AListWithoutAMarkerIsComplete) {
  const std::vector<Ace> list{allowed(kSomebody, 0x120089), allowed(kOwner, 0x16019F),
                              allowed(kGroup, 0x120089), allowed(kEveryone, 0x120089)};
  const SplitList split = withoutTail(list, false);
  EXPECT_TRUE(split.complete);
  EXPECT_EQ(split.entries, list);
}

TEST(ModeTail, AnEmptyListIsComplete) {
  const SplitList split = withoutTail({}, true);
  EXPECT_TRUE(split.complete);
  EXPECT_FALSE(split.tail);
  EXPECT_TRUE(split.entries.empty());
}

TEST(ModeTail, ClientSortedListIsCompleteWithTailEntries) {
  auto list = withTail({allowed(kSomebody, 0x120089)}, source(0644));
  std::sort(list.begin(), list.end(), [](const Ace& a, const Ace& b) { return a.sid < b.sid; });
  const SplitList split = withoutTail(list, false);
  EXPECT_TRUE(split.complete);
  std::erase(list, kMarker);
  EXPECT_EQ(split.entries, list);
}

TEST(ModeTail, StrayMarkerBeforeWholeTailIsDropped) {
  auto list = withTail({kMarker, allowed(kSomebody, 0x120089)}, source(0644));
  const SplitList split = withoutTail(list, false);
  EXPECT_FALSE(split.complete);
  EXPECT_EQ(split.entries, (std::vector<Ace>{allowed(kSomebody, 0x120089)}));
}

TEST(ModeTail, AMarkerThatWasChangedIsStray) {
  for (Ace marker :
       {allowed(markerSid(), 1), denied(markerSid(), 0), allowed(markerSid(), 0, kInherited)}) {
    auto list = withTail({}, source(0644));
    list.front() = marker;
    const SplitList split = withoutTail(list, false);
    EXPECT_TRUE(split.complete);
    EXPECT_EQ(split.entries.size(), 3U);
  }
}

TEST(ModeTail, AnyOtherEndIsNoTail) {
  const auto tail = withTail({}, source(0745));
  const auto complete = [](const std::vector<Ace>& list) {
    return withoutTail(list, false).complete;
  };
  ASSERT_FALSE(complete(tail));
  EXPECT_TRUE(complete({kMarker}));
  EXPECT_TRUE(complete(joined(tail, {allowed(kSomebody, 0x120089)})));
  for (std::size_t i = 1; i < tail.size(); ++i) {
    auto list = tail;
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
    EXPECT_TRUE(complete(list)) << "without entry " << i;
    list = tail;
    list[i].mask ^= kDeleteMask;
    EXPECT_TRUE(complete(list)) << "another mask in entry " << i;
    list = tail;
    list[i].flags ^= kInherited;
    EXPECT_TRUE(complete(list)) << "other flags in entry " << i;
    list = tail;
    list[i].sid.subAuthorities.push_back(7);
    EXPECT_TRUE(complete(list)) << "another SID in entry " << i;
    list = tail;
    list[i].type ^= 1U;
    EXPECT_TRUE(complete(list)) << "another type in entry " << i;
  }
}

TEST(ModeTail, FolderTailIsNoFileTail) {
  EXPECT_TRUE(withoutTail(withTail({}, source(0755, true)), false).complete);
  EXPECT_TRUE(withoutTail(withTail({}, source(0755)), true).complete);
}

TEST(ModeTail, ForeignEntryInTailMakesListComplete) {
  auto list = withTail({}, source(0644));
  list[2].foreign = "bytes";
  EXPECT_TRUE(withoutTail(list, false).complete);
}

}  // namespace
}  // namespace paddock::nt_acl
