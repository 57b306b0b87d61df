#include "keelhouse/access/acl_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"
#include "support/keelhouse_session.h"

namespace paddock::keelhouse {
namespace {

Dictionary entry(const char* guid, const char* allow = "YES", int bitmap = 2, int flags = 0) {
  return {{"guid", guid}, {"allowPermission", allow}, {"bitmap", bitmap}, {"flags", flags}};
}

class AclChanges : public SessionFixture {
 protected:
  WantedAcl typed(const std::vector<std::string>& words) {
    return newEntries(parseEntries(words), principals_);
  }
  static WantedAcl kept(const std::vector<const char*>& guids) {
    Array acl;
    for (const char* guid : guids) acl.emplace_back(entry(guid));
    return keptEntries(acl);
  }
  static std::vector<std::string> guidsOf(const WantedAcl& acl) {
    std::vector<std::string> guids;
    for (const WantedEntry& one : acl) guids.push_back(*one.sent.string("guid"));
    return guids;
  }
  WantedAcl without(const WantedAcl& acl, const std::vector<std::string>& words) {
    return withRemoved(acl, parseRemovals(words), principals_);
  }
  std::optional<std::string> difference(const WantedAcl& wanted, const Array& found) {
    return differenceOf(wanted, found, true, principals_);
  }
};

using Guids = std::vector<std::string>;

TEST_F(AclChanges, SendNewEntriesInDaemonFormat) {
  EXPECT_EQ(
      sentAcl(typed({"allow", "user:root", "read:inherit", "deny group:nogroup delete", "allow",
                     kOtherGuid, "none"})),
      (Array{Dictionary{{"isUser", 0},
                        {"uniqueID", 0},
                        {"allowPermission", "YES"},
                        {"bitmap", 2698},
                        {"flags", 96}},
             Dictionary{{"isUser", 1},
                        {"groupID", 65534},
                        {"allowPermission", "NO"},
                        {"bitmap", 16},
                        {"flags", 0}},
             Dictionary{
                 {"guid", kOtherGuid}, {"allowPermission", "YES"}, {"bitmap", 0}, {"flags", 0}}}));
}

TEST_F(AclChanges, SendBackEntriesByGuid) {
  Dictionary read = entry(kUserGuid, "NO", 16382, 48);
  read.set("displayName", "Zoe");
  read.set("isUser", 0);
  EXPECT_EQ(sentAcl(keptEntries({read})), (Array{entry(kUserGuid, "NO", 16382, 48)}));
}

TEST_F(AclChanges, RefuseSendingBackUnacceptableEntries) {
  Dictionary cut{{"displayName", "x"}, {"guid", kUserGuid}};
  EXPECT_THROW(keptEntries({entry(kUserGuid), cut}), Failure);
  EXPECT_THROW(keptEntries({entry("no guid")}), Failure);
  EXPECT_THROW(keptEntries({"text"}), Failure);
}

TEST_F(AclChanges, AddEntriesAtAnyPosition) {
  const WantedAcl acl = kept({kUserGuid, kGroupGuid});
  const WantedAcl added = kept({kOtherGuid, kRootGuid});
  EXPECT_EQ(guidsOf(withAdded(acl, added, std::nullopt)),
            (Guids{kUserGuid, kGroupGuid, kOtherGuid, kRootGuid}));
  EXPECT_EQ(guidsOf(withAdded(acl, added, 1)),
            (Guids{kOtherGuid, kRootGuid, kUserGuid, kGroupGuid}));
  EXPECT_EQ(guidsOf(withAdded(acl, added, 2)),
            (Guids{kUserGuid, kOtherGuid, kRootGuid, kGroupGuid}));
  EXPECT_EQ(guidsOf(withAdded(acl, added, 3)),
            (Guids{kUserGuid, kGroupGuid, kOtherGuid, kRootGuid}));
  EXPECT_THROW(withAdded(acl, added, 4), Failure);
  EXPECT_EQ(guidsOf(withAdded({}, added, 1)), (Guids{kOtherGuid, kRootGuid}));
}

TEST_F(AclChanges, RemoveByNumber) {
  const WantedAcl acl = kept({kUserGuid, kGroupGuid, kOtherGuid});
  EXPECT_EQ(guidsOf(without(acl, {"2"})), (Guids{kUserGuid, kOtherGuid}));
  EXPECT_EQ(guidsOf(without(acl, {"3", "1", "3"})), (Guids{kGroupGuid}));
  EXPECT_THROW(without(acl, {"4"}), Failure);
}

TEST_F(AclChanges, RemoveAllEntriesOfUserOrGroup) {
  const WantedAcl acl = kept({kRootGuid, kNogroupGuid, kRootGuid, kOtherGuid});
  EXPECT_EQ(guidsOf(without(acl, {kOtherGuid})), (Guids{kRootGuid, kNogroupGuid, kRootGuid}));
  EXPECT_EQ(guidsOf(without(acl, {"user:root", "group:nogroup"})), (Guids{kOtherGuid}));
  EXPECT_EQ(guidsOf(without(acl, {"user:root", "1", "2"})), (Guids{kOtherGuid}));
}

TEST_F(AclChanges, RefuseRemovingMissingEntries) {
  EXPECT_THROW(without(kept({kNogroupGuid}), {"user:root"}), Failure);
  EXPECT_THROW(without({}, {"1"}), Failure);
}

TEST(AclRemovals, AcceptNumbersUsersAndGroups) {
  const auto removals = parseRemovals({"12", "user:12", kOtherGuid});
  EXPECT_EQ(std::get<std::size_t>(removals.at(0)), 12U);
  EXPECT_EQ(std::get<PrincipalName>(removals.at(1)).name, "12");
  EXPECT_EQ(std::get<PrincipalName>(removals.at(2)).kind, PrincipalName::Kind::guid);
  for (const char* word : {"0", "-1", "", "user:"}) EXPECT_THROW(parseRemovals({word}), Failure);
}

TEST_F(AclChanges, SucceedWhenReadBackMatches) {
  EXPECT_EQ(difference({}, {}), std::nullopt);
  EXPECT_EQ(difference(kept({kUserGuid, kGroupGuid}), {entry(kUserGuid), entry(kGroupGuid)}),
            std::nullopt);
  EXPECT_EQ(difference(typed({"deny", "user:root", "list"}), {entry(kRootGuid, "NO")}),
            std::nullopt);
}

TEST_F(AclChanges, FailWhenEntryReadsBackDifferently) {
  const WantedAcl wanted = typed({"allow", "user:root", "list"});
  EXPECT_EQ(difference(wanted, {entry(kRootGuid, "NO")}),
            "entry 1 reads back as \"deny user:root list\"");
  EXPECT_EQ(difference(wanted, {entry(kRootGuid, "YES", 2698, 32)}),
            "entry 1 reads back as \"allow user:root read:file-inherit\"");
  EXPECT_EQ(difference(wanted, {entry(kNobodyGuid)}),
            "entry 1 reads back as \"allow user:nobody list\"");
  EXPECT_TRUE(difference(wanted, {entry("x")}));
  EXPECT_TRUE(difference(wanted, {"text"}));
}

TEST_F(AclChanges, FailWhenEntryCountDiffers) {
  EXPECT_EQ(difference(kept({kUserGuid}), {}), "of 1 entries 0 read back");
  EXPECT_EQ(difference({}, {entry(kUserGuid)}), "of 0 entries 1 read back");
}

}  // namespace
}  // namespace paddock::keelhouse
