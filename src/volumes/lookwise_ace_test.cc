// The indexing service's entry in a folder's extended ACL.
#include <cerrno>

#include "support/indexing_fixture.h"
#include "volumes/md_config_wrappers.h"

namespace paddock {
namespace {

using acl::kExtendedAllow;
using acl::kExtendedDeny;

using Texts = std::vector<std::string>;

class LookwiseAceTest : public IndexingFixture {
 protected:
  static bool isPresent() { return MDConfigWrappers::isLookwiseACEPresent(kFolder); }
  static bool add() { return MDConfigWrappers::addLookwiseACE(kFolder); }
  static acl::Entry lookwiseEntry() { return entryOf(kExtendedAllow, guidOfUser(89), 10, 112); }
  static acl::Entry otherEntry() { return entryOf(kExtendedDeny, guidOfUser(1000), 4, 0); }
};

class LookwiseAcePresence : public LookwiseAceTest {};

TEST_F(LookwiseAcePresence, AFolderWithoutAnAclHasNone) {
  EXPECT_FALSE(isPresent());
  EXPECT_FALSE(MDConfigWrappers::isLookwiseACEPresent("/srv/missing"));
  EXPECT_FALSE(MDConfigWrappers::isLookwiseACEPresent(""));
}

TEST_F(LookwiseAcePresence, AnEmptyAclHasNone) {
  store({});
  EXPECT_FALSE(isPresent());
}

TEST_F(LookwiseAcePresence, TheEntryIsFoundAtAnyPlace) {
  store({lookwiseEntry()});
  EXPECT_TRUE(isPresent());
  store({otherEntry(), otherEntry(), lookwiseEntry()});
  EXPECT_TRUE(isPresent());
  store({otherEntry(), lookwiseEntry(), otherEntry()});
  EXPECT_TRUE(isPresent());
}

TEST_F(LookwiseAcePresence, SearchAndInheritanceByFoldersAreEnough) {
  store({entryOf(kExtendedAllow, guidOfUser(89), acl::kExecute, acl::kDirectoryInherit)});
  EXPECT_TRUE(isPresent());
  store({entryOf(kExtendedAllow, guidOfUser(89), acl::kAllPermissions, acl::kAllFlags)});
  EXPECT_TRUE(isPresent());
}

TEST_F(LookwiseAcePresence, WithoutSearchItDoesNotMatch) {
  store({entryOf(kExtendedAllow, guidOfUser(89), acl::kAllPermissions & ~acl::kExecute, 112)});
  EXPECT_FALSE(isPresent());
}

TEST_F(LookwiseAcePresence, WithoutInheritanceByFoldersItDoesNotMatch) {
  store({entryOf(kExtendedAllow, guidOfUser(89), 10, acl::kAllFlags & ~acl::kDirectoryInherit)});
  EXPECT_FALSE(isPresent());
}

TEST_F(LookwiseAcePresence, DenyOrForeignEntryDoesNotMatch) {
  store({entryOf(kExtendedDeny, guidOfUser(89), 10, 112),
         entryOf(acl::kForeignTag, guidOfUser(89), 10, 112)});
  EXPECT_FALSE(isPresent());
}

TEST_F(LookwiseAcePresence, OtherPrincipalsDoNotMatch) {
  store({entryOf(kExtendedAllow, guidOfUser(88), 10, 112),
         entryOf(kExtendedAllow, computedGuid({PrincipalType::group, 89}), 10, 112),
         entryOf(kExtendedAllow, Guid{{1, 2, 3}}, 10, 112)});
  EXPECT_FALSE(isPresent());
}

TEST_F(LookwiseAcePresence, AGuidOfTheAccountsOwnMatches) {
  const Guid own{{0xAB, 0xCD}};
  membership.setGuid({PrincipalType::user, 89}, own);
  store({entryOf(kExtendedAllow, own, 10, 112)});
  EXPECT_TRUE(isPresent());
}

TEST_F(LookwiseAcePresence, AnInvalidAclHasNone) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_FALSE(isPresent());
  acl::Entry untagged = lookwiseEntry();
  untagged.tag = acl::kUndefinedTag;
  store({lookwiseEntry(), untagged});
  EXPECT_FALSE(isPresent());
}

TEST_F(LookwiseAcePresence, AnEntryWithoutAQualifierIsPassedOver) {
  store({lookwiseEntry(), lookwiseEntry()});
  failing("acl.acl_get_qualifier", [] { EXPECT_TRUE(isPresent()); });
  store({lookwiseEntry()});
  failing("acl.acl_get_qualifier", [] { EXPECT_FALSE(isPresent()); });
}

TEST_F(LookwiseAcePresence, FailingCallYieldsNoMatchAndReleasesEverything) {
  store({lookwiseEntry()});
  for (const char* call :
       {"acl.acl_get_file", "acl.acl_valid", "acl.acl_get_entry", "acl.acl_get_qualifier",
        "membership.guidToId", "acl.acl_get_tag_type", "acl.acl_get_permset", "acl.acl_get_perm_np",
        "acl.acl_get_flagset_np", "acl.acl_get_flag_np"}) {
    failing(call, [&] { EXPECT_FALSE(isPresent()) << call; });
    EXPECT_EQ(acl.unreleased(), 0U) << call;
  }
  expectErrors({});
}

TEST_F(LookwiseAcePresence, AReleaseThatFailsIsNoFailure) {
  store({lookwiseEntry()});
  for (const char* call : {"acl.acl_free.list", "acl.acl_free.qualifier"})
    failing(call, [&] { EXPECT_TRUE(isPresent()) << call; });
  expectErrors({});
}

TEST_F(LookwiseAcePresence, TheWalkEndsAtTheFirstMatch) {
  store({otherEntry(), lookwiseEntry(), otherEntry()});
  FaultPlan plan;
  plan.countOnly("acl.acl_get_entry");
  const ForwardingServices faulty(doubles(), plan);
  const ServicesGuard guard(faulty.services());
  EXPECT_TRUE(isPresent());
  EXPECT_EQ(plan.callCount(), 2U);
}

TEST_F(LookwiseAcePresence, LookingChangesNothing) {
  store({otherEntry(), lookwiseEntry()});
  const Texts before = entries();
  EXPECT_TRUE(isPresent());
  EXPECT_EQ(entries(), before);
  EXPECT_EQ(acl.replacements(), 0);
}

class LookwiseAceAddition : public LookwiseAceTest {};

TEST_F(LookwiseAceAddition, FolderWithoutAclGetsOneWithThisEntry) {
  EXPECT_FALSE(isPresent());
  EXPECT_TRUE(add());
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  EXPECT_TRUE(isPresent());
}

TEST_F(LookwiseAceAddition, TheEntryComesLastAndTheOthersStay) {
  store({otherEntry(), entryOf(kExtendedAllow, guidOfUser(5), 2, 16)});
  EXPECT_TRUE(add());
  EXPECT_EQ(entries(), (Texts{"2 1000 4 0", "1 5 2 16", kLookwiseEntry}));
}

TEST_F(LookwiseAceAddition, AddingDoesNotLookWhetherItIsThere) {
  EXPECT_TRUE(add());
  EXPECT_TRUE(add());
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry, kLookwiseEntry}));
}

TEST_F(LookwiseAceAddition, AGuidOfTheAccountsOwnIsUsed) {
  const Guid own{{0xAB, 0xCD}};
  membership.setGuid({PrincipalType::user, 89}, own);
  EXPECT_TRUE(add());
  EXPECT_EQ(tree.acl(kFolder)->entries.at(0).qualifier, own);
}

TEST_F(LookwiseAceAddition, UnreadableAclIsNotReplaced) {
  store({otherEntry()});
  for (const int error : {EIO, EACCES, ENOMEM, EOPNOTSUPP})
    failing(
        "acl.acl_get_file", [] { EXPECT_FALSE(add()); }, error);
  EXPECT_EQ(entries(), (Texts{"2 1000 4 0"}));
}

TEST_F(LookwiseAceAddition, AnInvalidAclIsNotReplaced) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_FALSE(add());
  EXPECT_TRUE(tree.acl(kFolder)->undecodable);
}

TEST_F(LookwiseAceAddition, AFullAclIsLeftAsItIs) {
  store(std::vector<acl::Entry>(1000, otherEntry()));
  EXPECT_FALSE(add());
  EXPECT_EQ(entries().size(), 1000U);
}

TEST_F(LookwiseAceAddition, AMissingFolderCannotHaveIt) {
  EXPECT_FALSE(MDConfigWrappers::addLookwiseACE("/srv/missing"));
  EXPECT_FALSE(MDConfigWrappers::addLookwiseACE(""));
}

TEST_F(LookwiseAceAddition, FailingStepKeepsAclAndReleasesIt) {
  store({otherEntry()});
  for (const char* call :
       {"acl.acl_get_file", "acl.acl_create_entry", "acl.acl_get_flagset_np",
        "acl.acl_clear_flags_np", "acl.acl_add_flag_np", "acl.acl_set_flagset_np",
        "acl.acl_get_permset", "acl.acl_add_perm", "acl.acl_set_permset", "acl.acl_set_tag_type",
        "membership.uidToGuid", "acl.acl_set_qualifier", "acl.acl_set_file"}) {
    failing(call, [&] { EXPECT_FALSE(add()) << call; });
    EXPECT_EQ(entries(), (Texts{"2 1000 4 0"})) << call;
    EXPECT_EQ(acl.unreleased(), 0U) << call;
  }
  expectErrors({});
}

TEST_F(LookwiseAceAddition, EachFlagAndPermissionMayFail) {
  for (std::size_t nth = 1; nth <= 3; ++nth)
    failing(
        "acl.acl_add_flag_np", [] { EXPECT_FALSE(add()); }, EIO, nth);
  for (std::size_t nth = 1; nth <= 2; ++nth)
    failing(
        "acl.acl_add_perm", [] { EXPECT_FALSE(add()); }, EIO, nth);
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(LookwiseAceAddition, FailedListInitialisationFails) {
  failing("acl.acl_init", [] { EXPECT_FALSE(add()); });
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(LookwiseAceAddition, AReleaseThatFailsIsNoFailure) {
  failing("acl.acl_free.list", [] { EXPECT_TRUE(add()); });
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
}

}  // namespace
}  // namespace paddock
