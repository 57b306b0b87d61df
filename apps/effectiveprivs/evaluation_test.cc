#include "effectiveprivs/evaluation.h"

#include <gmock/gmock.h>

#include "effectiveprivs/judged_objects.h"

namespace paddock::effectiveprivs {
namespace {

using acl::Permission;
using Kind = Subject::Kind;

constexpr Permission kEverybodys = 128 | 2048;

Verdicts verdictsOf(const ObjectPrivileges& object, const Identity& user,
                    const std::optional<ObjectPrivileges>& parent = std::nullopt) {
  return judge(
      object, [&parent] { return parent ? &*parent : nullptr; }, user);
}
Permission permissionsOf(const ObjectPrivileges& object, const Identity& user,
                         const std::optional<ObjectPrivileges>& parent = std::nullopt) {
  return granted(verdictsOf(object, user, parent));
}
Verdict verdictOn(Permission permission, const Verdicts& verdicts) {
  for (const Verdict& verdict : verdicts)
    if (verdict.permission == permission) return verdict;
  ADD_FAILURE() << permission << " is no permission";
  return {};
}

Permission deleting(const ObjectPrivileges& object, const ObjectPrivileges& parent,
                    const Identity& user = anna()) {
  return permissionsOf(object, user, parent) & 16U;
}

TEST(Root, HasEveryPermissionWhateverListAndModeSay) {
  const Identity root(0, {}, {});
  EXPECT_EQ(permissionsOf(fileWith(0), root), 16382U);
  EXPECT_EQ(
      permissionsOf(listed(fileWith(0), {deny(subjectOf(Kind::everyone), 16382)}, true), root),
      16382U);
  for (const Verdict& verdict : verdictsOf(fileWith(0), root))
    EXPECT_EQ(verdict.reason, Reason::root);
}

TEST(Verdicts, AreOneForEachPermissionLowestFirst) {
  const Verdicts verdicts = verdictsOf(fileWith(0), anna());
  for (std::size_t at = 0; at < verdicts.size(); ++at)
    EXPECT_EQ(verdicts[at].permission, acl::kPermissions[at]);
}

TEST(Mode, ReadingGivesDataAndExtendedAttributes) {
  EXPECT_EQ(permissionsOf(fileWith(0004), anna()), 2 | 512 | kEverybodys);
}

TEST(Mode, WritingGivesDataAppendingAndExtendedAttributes) {
  EXPECT_EQ(permissionsOf(fileWith(0002), anna()), 4 | 32 | 1024 | kEverybodys);
}

TEST(Mode, WritingFolderIncludesDeletingItsContents) {
  EXPECT_EQ(permissionsOf(folderWith(0002), anna()), 4 | 32 | 64 | 1024 | kEverybodys);
}

TEST(Mode, ExecutingGivesExecuting) {
  EXPECT_EQ(permissionsOf(fileWith(0001), anna()), 8 | kEverybodys);
}

TEST(Mode, OwnerGetsOwnerBitsAttributesAndList) {
  EXPECT_EQ(permissionsOf(owned(fileWith(0077), kAnna, kStaff), anna({groupOf(kStaff)})),
            256 | 4096 | kEverybodys);
  EXPECT_EQ(permissionsOf(owned(fileWith(0400), kAnna, kStaff), anna()),
            2 | 512 | 256 | 4096 | kEverybodys);
}

TEST(Mode, OwningGroupMemberGetsGroupBits) {
  const auto file = owned(fileWith(0047), kBert, kStaff);
  EXPECT_EQ(permissionsOf(file, anna({groupOf(kCrew), groupOf(kStaff)})), 2 | 512 | kEverybodys);
  const Verdict verdict = verdictOn(4, verdictsOf(file, anna({groupOf(kCrew), groupOf(kStaff)})));
  EXPECT_FALSE(verdict.granted);
  EXPECT_EQ(verdict.reason, Reason::mode);
  EXPECT_EQ(verdict.modeClass, ModeClass::group);
  EXPECT_EQ(verdict.group, 1U);
}

TEST(Mode, DirectoryOnlyGroupIsUnknownToKernel) {
  const Identity user(kAnna, memberOf(kAnna, {groupOf(kStaff)}), {kCrew});
  const auto file = owned(fileWith(0704), kBert, kStaff);
  EXPECT_EQ(permissionsOf(file, user), 2 | 512 | kEverybodys);
  EXPECT_EQ(permissionsOf(listed(file, {allow(groupSubject(kStaff), 4)}), user),
            2 | 4 | 512 | kEverybodys);
}

TEST(Mode, AnybodyElseHasThoseOfOthers) {
  const auto file = fileWith(0770);
  EXPECT_EQ(permissionsOf(file, anna({groupOf(kStaff)})), kEverybodys);
  EXPECT_EQ(verdictOn(2, verdictsOf(file, anna())).modeClass, ModeClass::others);
}

TEST(Mode, GivesNobodyTheChangeOfTheOwner) {
  const auto file = owned(fileWith(0777), kAnna, kStaff);
  EXPECT_EQ(permissionsOf(file, anna({groupOf(kStaff)})) & 8192U, 0U);
  EXPECT_EQ(verdictOn(8192, verdictsOf(file, anna())).reason, Reason::nothing);
}

TEST(Mode, RemovingInsideMeansNothingForAFile) {
  EXPECT_EQ(verdictOn(64, verdictsOf(fileWith(0777), anna())).reason, Reason::nothing);
}

TEST(List, FirstEntryNamingPermissionDecidesIt) {
  const auto file = listed(fileWith(0), {deny(userSubject(kAnna), 4), allow(userSubject(kAnna), 6),
                                         deny(userSubject(kAnna), 2)});
  EXPECT_EQ(permissionsOf(file, anna()), 2 | kEverybodys);
  const Verdicts verdicts = verdictsOf(file, anna());
  EXPECT_EQ(verdictOn(4, verdicts).entry, 0U);
  EXPECT_FALSE(verdictOn(4, verdicts).granted);
  EXPECT_EQ(verdictOn(2, verdicts).entry, 1U);
  EXPECT_EQ(verdictOn(2, verdicts).reason, Reason::entry);
  EXPECT_EQ(verdictOn(8, verdicts).reason, Reason::mode);
}

TEST(List, ADenialTakesWhatTheModeGives) {
  EXPECT_EQ(permissionsOf(listed(fileWith(0777), {deny(userSubject(kAnna), 14)}), anna()),
            32 | 512 | 1024 | kEverybodys);
}

TEST(List, EntriesForSomebodyElseDecideNothing) {
  const std::vector<Rule> rules{allow(userSubject(kBert), 16382), allow(groupSubject(kAnna), 16382),
                                allow(userSubject(kStaff), 16382),
                                allow(groupSubject(kCrew), 16382), allow({}, 16382)};
  EXPECT_EQ(permissionsOf(listed(fileWith(0), rules), anna({groupOf(kStaff)})), kEverybodys);
}

TEST(List, EveryGroupThatHoldsTheUserCounts) {
  const auto user = anna(
      {groupOf(kStaff, HeldBy::primaryGroup), groupOf(kCrew), groupOf(60, HeldBy::nestedGroup, 1)});
  for (const std::uint32_t gid : {kStaff, kCrew, 60U})
    EXPECT_EQ(permissionsOf(listed(fileWith(0), {allow(groupSubject(gid), 2)}), user),
              2 | kEverybodys);
  const Verdict verdict =
      verdictOn(2, verdictsOf(listed(fileWith(0), {allow(groupSubject(60), 2)}), user));
  EXPECT_EQ(verdict.group, 2U);
}

TEST(List, GuidEntryAppliesToMatchingUserOrGroup) {
  const Guid own = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  const Guid groups = *parseGuid("DEADBEEF-0000-4000-8000-000000000002");
  const Guid nobodys = *parseGuid("DEADBEEF-0000-4000-8000-000000000003");
  UserMembership membership = memberOf(kAnna, {{std::nullopt, {groups}, "g", {}, {}, {}}});
  membership.guids.push_back(own);
  const Identity user(kAnna, membership, {});
  const auto file =
      listed(fileWith(0), {allow(guidSubject(nobodys), 16382), allow(guidSubject(own), 2),
                           allow(guidSubject(groups), 4)});
  const Verdicts verdicts = verdictsOf(file, user);
  EXPECT_EQ(granted(verdicts), 2 | 4 | kEverybodys);
  EXPECT_EQ(verdictOn(2, verdicts).group, std::nullopt);
  EXPECT_EQ(verdictOn(4, verdicts).group, 0U);
}

TEST(List, EveryoneIsEverybody) {
  const auto file = listed(fileWith(0), {allow(subjectOf(Kind::everyone), 2)});
  EXPECT_EQ(permissionsOf(file, anna()), 2 | kEverybodys);
  EXPECT_EQ(permissionsOf(file, unknown(7)), 2 | kEverybodys);
}

TEST(List, WhoHasAnAccountIsAnAuthenticatedUser) {
  const auto file = listed(fileWith(0), {allow(subjectOf(Kind::authenticated), 2)});
  EXPECT_EQ(permissionsOf(file, anna()), 2 | kEverybodys);
  EXPECT_EQ(permissionsOf(file, unknown(7)), kEverybodys);
}

TEST(List, OwnerRightsAreTheOwnersAlone) {
  const auto file = listed(fileWith(0), {deny(subjectOf(Kind::ownerRights), 4096),
                                         allow(subjectOf(Kind::ownerRights), 2)});
  EXPECT_EQ(permissionsOf(file, anna()), kEverybodys);
  EXPECT_EQ(permissionsOf(owned(file, kAnna, kStaff), anna()), 2 | 256 | kEverybodys);
}

TEST(List, WhatIsOnlyInheritedDecidesNothing) {
  Rule denied = deny(userSubject(kAnna), 16382);
  Rule allowed = allow(userSubject(kAnna), 16382);
  denied.onlyInherit = allowed.onlyInherit = true;
  const auto file = listed(fileWith(0004), {denied, allowed, allow(userSubject(kAnna), 4)});
  const Verdicts verdicts = verdictsOf(file, anna());
  EXPECT_EQ(granted(verdicts), 2 | 4 | 512 | kEverybodys);
  EXPECT_EQ(verdictOn(4, verdicts).entry, 2U);
}

TEST(List, GivesTheChangeOfTheOwner) {
  EXPECT_EQ(permissionsOf(listed(fileWith(0), {allow(userSubject(kAnna), 8192)}), anna()),
            8192 | kEverybodys);
}

TEST(List, ThatIsEmptyLeavesEverythingToTheMode) {
  EXPECT_EQ(permissionsOf(listed(fileWith(0004), {}), anna()), 2 | 512 | kEverybodys);
}

TEST(List, BitsThatAreNoPermissionAreNeverGranted) {
  EXPECT_EQ(permissionsOf(listed(fileWith(0), {allow(userSubject(kAnna), ~0U)}), anna()), 16382U);
}

TEST(CompleteList, OverridesModeAndParentFolder) {
  const auto file =
      listed(owned(fileWith(0777), kAnna, kStaff), {allow(userSubject(kAnna), 2)}, true);
  const Verdicts verdicts = verdictsOf(file, anna(), folderWith(0777));
  EXPECT_EQ(granted(verdicts), 2U);
  EXPECT_EQ(verdictOn(4, verdicts).reason, Reason::list);
  EXPECT_EQ(verdictOn(16, verdicts).reason, Reason::list);
}

TEST(CompleteList, ThatIsEmptyLetsNobodyIn) {
  EXPECT_EQ(permissionsOf(listed(owned(fileWith(0777), kAnna, kStaff), {}, true), anna()), 0U);
}

TEST(Deleting, FollowsWritingAndSearchingTheFolderAround) {
  EXPECT_EQ(deleting(fileWith(0), folderWith(0003)), 16U);
  EXPECT_EQ(deleting(fileWith(0), folderWith(0001)), 0U);
  EXPECT_EQ(deleting(fileWith(0), folderWith(0755)), 0U);
  const auto file = fileWith(0);
  EXPECT_EQ(verdictOn(16, verdictsOf(file, anna(), folderWith(0003))).reason, Reason::parent);
}

TEST(Deleting, FollowsTheFoldersListToo) {
  const auto writing = [](Permission permissions) {
    return listed(folderWith(0), {allow(userSubject(kAnna), permissions)});
  };
  EXPECT_EQ(deleting(fileWith(0), writing(4 | 8)), 16U);
  EXPECT_EQ(deleting(fileWith(0), writing(4)), 0U);
  EXPECT_EQ(deleting(fileWith(0), writing(8 | 32)), 0U);
  EXPECT_EQ(deleting(fileWith(0), listed(folderWith(0003), {deny(userSubject(kAnna), 4 | 64)})),
            0U);
}

TEST(Deleting, FollowsDeletingWhatIsInTheFolderAlone) {
  const auto folder = listed(folderWith(0), {allow(userSubject(kAnna), 64)});
  EXPECT_EQ(deleting(fileWith(0), folder), 16U);
}

TEST(Deleting, InFolderWithCompleteListFollowsThatList) {
  EXPECT_EQ(deleting(fileWith(0), listed(folderWith(0777), {}, true)), 0U);
}

TEST(Deleting, InStickyFolderRequiresOwnership) {
  EXPECT_EQ(deleting(fileWith(0777), folderWith(01777)), 0U);
  EXPECT_EQ(deleting(owned(fileWith(0), kAnna, kStaff), folderWith(01777)), 16U);
  EXPECT_EQ(deleting(fileWith(0), owned(folderWith(01700), kAnna, kStaff)), 16U);
  EXPECT_EQ(deleting(owned(fileWith(0), kAnna, kStaff), folderWith(01755)), 0U);
}

TEST(Deleting, AnEntryDecidesItWhateverTheFolderSays) {
  EXPECT_EQ(deleting(listed(fileWith(0), {allow(userSubject(kAnna), 16)}), folderWith(0)), 16U);
  EXPECT_EQ(deleting(listed(fileWith(0), {deny(userSubject(kAnna), 16)}), folderWith(0777)), 0U);
}

TEST(Deleting, SkipsFolderCheckWhenDecided) {
  const auto file = listed(fileWith(0), {allow(userSubject(kAnna), 16)});
  judge(
      file,
      []() -> const ObjectPrivileges* {
        ADD_FAILURE() << "it was looked at";
        return nullptr;
      },
      anna());
}

TEST(Deleting, TheHighestFolderIsForNobody) {
  EXPECT_EQ(permissionsOf(folderWith(0777), anna()) & 16U, 0U);
}

TEST(UnknownUid, HasWhatEveryoneAndOthersHave) {
  const auto file = listed(fileWith(0004), {allow(subjectOf(Kind::everyone), 8)});
  EXPECT_EQ(permissionsOf(file, unknown(4711)), 2 | 8 | 512 | kEverybodys);
}

TEST(UnknownUid, GetsRightsFromOwnershipAndNamedEntries) {
  const auto file = listed(owned(fileWith(0104), 4711, kStaff),
                           {allow(userSubject(4711), 32), allow(subjectOf(Kind::ownerRights), 4)});
  EXPECT_EQ(permissionsOf(file, unknown(4711)), 4 | 8 | 32 | 256 | 4096 | kEverybodys);
  EXPECT_EQ(permissionsOf(file, unknown(4712)), 2 | 512 | kEverybodys);
}

TEST(UnknownUid, ThatAnEntryDeniesMayNot) {
  const auto file = listed(fileWith(0004), {deny(userSubject(4711), 2)});
  EXPECT_EQ(permissionsOf(file, unknown(4711)), 512 | kEverybodys);
}

TEST(UnknownUid, WhatNobodyHasIsNoOwner) {
  const auto file = listed(owned(fileWith(0700), Identity::kNoUid, kStaff),
                           {allow(userSubject(Identity::kNoUid), 2)});
  EXPECT_EQ(permissionsOf(file, unknown(Identity::kNoUid)), kEverybodys);
}

// An unknown principal may match any user.
constexpr Subject::Kind kStranger = Subject::Kind::unknown;

TEST(Stranger, DenialLeavesLaterEntriesInDoubt) {
  const auto file =
      listed(fileWith(0), {allow(userSubject(kAnna), 8), deny(subjectOf(kStranger), 2 | 8),
                           allow(userSubject(kAnna), 2 | 4)});
  const Verdicts verdicts = verdictsOf(file, anna());
  EXPECT_EQ(granted(verdicts), 4 | 8 | kEverybodys);
  EXPECT_EQ(doubted(verdicts), 2U);
  EXPECT_EQ(verdictOn(2, verdicts).doubt, 1U);
  EXPECT_EQ(verdictOn(2, verdicts).entry, 2U);
}

TEST(Stranger, DenialOfModeRightsLeavesThemInDoubt) {
  const auto file = listed(fileWith(0004), {deny(subjectOf(kStranger), 2)});
  EXPECT_EQ(granted(verdictsOf(file, anna())), 512 | kEverybodys);
  EXPECT_EQ(doubted(verdictsOf(file, anna())), 2U);
}

TEST(Stranger, DenialOfRefusedRightsLeavesNoDoubt) {
  const auto file = listed(fileWith(0), {deny(subjectOf(kStranger), 2)});
  EXPECT_EQ(doubted(verdictsOf(file, anna())), 0U);
}

TEST(Stranger, WhoIsAllowedLeavesARefusalInDoubt) {
  const auto file =
      listed(fileWith(0), {allow(subjectOf(kStranger), 2 | 4), deny(userSubject(kAnna), 2),
                           allow(userSubject(kAnna), 4)});
  const Verdicts verdicts = verdictsOf(file, anna());
  EXPECT_EQ(granted(verdicts), 4 | kEverybodys);
  EXPECT_EQ(doubted(verdicts), 2U);
  EXPECT_EQ(verdictOn(2, verdicts).doubt, 0U);
}

// A user may be in any group of a node that does not respond.
TEST(UnaskedNode, LeavesOnlyGroupDecisionsInDoubt) {
  auto file = listed(fileWith(0), {allow(userSubject(kBert), 8), deny(groupSubject(kCrew), 2 | 8),
                                   allow(userSubject(kAnna), 2 | 4)});
  EXPECT_EQ(doubted(verdictsOf(file, anna())), 0U);
  file.unaskedNodes = "/LDAP/a";
  const Verdicts verdicts = verdictsOf(file, anna());
  EXPECT_EQ(granted(verdicts), 4 | kEverybodys);
  EXPECT_EQ(doubted(verdicts), 2U);
  EXPECT_EQ(verdictOn(2, verdicts).doubt, 1U);
}

TEST(UnaskedNode, PutsNobodyWithoutAnAccountIntoGroups) {
  auto file = listed(fileWith(0), {allow(groupSubject(kCrew), 2)});
  file.unaskedNodes = "/LDAP/a";
  EXPECT_EQ(doubted(verdictsOf(file, unknown(Identity::kNoUid))), 0U);
  EXPECT_EQ(doubted(verdictsOf(file, unknown(4711))), 2U);
}

TEST(Stranger, InACompleteListIsWeighedAgainstNothing) {
  const auto file = listed(fileWith(0777), {allow(subjectOf(kStranger), 2)}, true);
  EXPECT_EQ(granted(verdictsOf(file, anna())), 0U);
  EXPECT_EQ(doubted(verdictsOf(file, anna())), 2U);
}

TEST(Stranger, OfTheFolderAroundMakesDeletingDoubtful) {
  const auto folder = listed(folderWith(0777), {deny(subjectOf(kStranger), 4 | 64)});
  const Verdicts verdicts = judge(
      fileWith(0), [&folder] { return &folder; }, anna());
  EXPECT_EQ(granted(verdicts), kEverybodys);
  EXPECT_EQ(doubted(verdicts), 16U);
}

TEST(Stranger, IsNobodyToRoot) {
  const auto file = listed(fileWith(0), {deny(subjectOf(kStranger), 16382)}, true);
  EXPECT_EQ(granted(verdictsOf(file, Identity(0, {}, {}))), 16382U);
}

TEST(List, AccountsOfSambasAreTheirUids) {
  Subject accounts = subjectOf(Kind::accounts);
  accounts.uids = std::make_shared<const std::set<std::uint32_t>>(std::set{kAnna});
  const auto file = listed(fileWith(0), {allow(accounts, 2)});
  EXPECT_EQ(permissionsOf(file, anna()), 2 | kEverybodys);
  EXPECT_EQ(permissionsOf(file, unknown(7)), kEverybodys);
}

TEST(List, NetworkEntryAppliesToEveryUser) {
  const auto file = listed(fileWith(0), {allow(subjectOf(Kind::network), 2)});
  EXPECT_EQ(permissionsOf(file, anna()), 2 | kEverybodys);
}

}  // namespace
}  // namespace paddock::effectiveprivs
