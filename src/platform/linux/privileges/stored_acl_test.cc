#include "platform/linux/privileges/stored_acl.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/testing/in_memory_membership.h"

namespace paddock::nt_acl {
namespace {

const Guid kRecords = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
const Guid kNobodys = *parseGuid("DEADBEEF-0000-4000-8000-000000000002");

Sid sidOf(const char* text) { return parseSid(text).value(); }
Ace allowed(const Sid& sid, std::uint32_t mask, std::uint8_t flags = 0) {
  return {kAllowed, flags, mask, sid, {}};
}
Ace foreign() {
  const Sid sid = sidOf("S-1-22-1-1000");
  return {5, 0, 0x120089, sid, std::string(28, '\x05')};
}

// Knows one SID, the user 1001's.
class OneSidResolver final : public SidResolver {
 public:
  int principalOf(const Sid& sid, Principal& principal) override {
    if (sid != sidOf("S-1-5-21-1-2-3-1105")) return ENOENT;
    principal = {PrincipalType::user, 1001};
    return 0;
  }
};

class StoredAclEntries : public ::testing::Test {
 protected:
  StoredAclEntries() { membership_.setGuid({PrincipalType::user, 1000}, kRecords); }

  acl::List read(const std::vector<Ace>& aces) {
    acl::List list;
    EXPECT_EQ(readEntries(sids_, aces, list), 0);
    return list;
  }
  std::vector<Ace> written(const acl::List& list, const std::vector<Ace>& replaced = {}) {
    std::vector<Ace> aces;
    EXPECT_EQ(writeEntries(sids_, list, replaced, aces), 0);
    return aces;
  }
  // The same entries, as created by a program that knows only what the calls return.
  static acl::List madeAfresh(const acl::List& list) {
    acl::List made;
    for (const auto& entry : list.entries) {
      auto copy = std::make_unique<acl::Entry>(*entry);
      copy->origin.reset();
      if (copy->tag == acl::kForeignTag) copy->tag = acl::kExtendedAllow;
      made.entries.push_back(std::move(copy));
    }
    return made;
  }
  static acl::List ofOne(int tag, const Guid& guid, acl::Permission permissions) {
    acl::List list;
    list.entries.push_back(std::make_unique<acl::Entry>());
    list.entries[0]->tag = tag;
    list.entries[0]->qualifier = guid;
    list.entries[0]->permset.permissions = permissions;
    return list;
  }

  InMemoryMembership membership_;
  PrincipalSids sids_{membership_, "", std::make_unique<OneSidResolver>()};
};

TEST_F(StoredAclEntries, PrincipalsAreReadByTheirGuids) {
  const acl::List list = read({allowed(sidOf("S-1-22-1-1000"), 1), allowed(guidSid(kNobodys), 1)});
  ASSERT_EQ(list.entries.size(), 2U);
  EXPECT_EQ(list.entries[0]->qualifier, kRecords);
  EXPECT_EQ(list.entries[1]->qualifier, kNobodys);
}

TEST_F(StoredAclEntries, PrincipalsAreWrittenAsUnixOrOwnSids) {
  EXPECT_EQ(written(ofOne(acl::kExtendedAllow, kRecords, acl::kReadData))[0].sid,
            sidOf("S-1-22-1-1000"));
  EXPECT_EQ(written(ofOne(acl::kExtendedAllow, computedGuid({PrincipalType::group, 50}), 2))[0].sid,
            sidOf("S-1-22-2-50"));
  EXPECT_EQ(written(ofOne(acl::kExtendedAllow, kNobodys, 2))[0].sid, guidSid(kNobodys));
}

TEST_F(StoredAclEntries, WhatWasReadGoesBackAsItWas) {
  const std::vector<Ace> aces{allowed(sidOf("S-1-5-21-1-2-3-1104"), 0x10000001, 0xC0),
                              allowed(sidOf("S-1-22-1-1000"), 0),
                              foreign(),
                              allowed(sidOf("S-1-1-0"), 0x1200A9),
                              {kDenied, kInherited, 0x100002, sidOf("S-1-22-1-1000"), {}}};
  EXPECT_EQ(written(read(aces)), aces);
}

TEST_F(StoredAclEntries, NewEntryEqualToStoredOnePreservesIt) {
  const std::vector<Ace> aces{allowed(sidOf("S-1-5-21-1-2-3-1104"), 0x10000001, 0xC0), foreign(),
                              allowed(sidOf("S-1-22-1-1000"), 0x1),
                              allowed(sidOf("S-1-22-1-1000"), 0x100001)};
  EXPECT_EQ(written(madeAfresh(read(aces)), aces), aces);
}

TEST_F(StoredAclEntries, DifferingNewEntryIsWrittenPlain) {
  const std::vector<Ace> aces{allowed(sidOf("S-1-22-1-1000"), 0x10000001)};
  acl::List list = madeAfresh(read(aces));
  list.entries[0]->permset.permissions |= acl::kExecute;
  EXPECT_EQ(written(list, aces), (std::vector<Ace>{allowed(sidOf("S-1-22-1-1000"), 0x100021)}));
}

TEST_F(StoredAclEntries, StoredEntryMatchesOnlyOneNewEntry) {
  const std::vector<Ace> aces{allowed(sidOf("S-1-22-1-1000"), 0x10000001)};
  acl::List list = madeAfresh(read({aces[0], aces[0]}));
  EXPECT_EQ(written(list, aces),
            (std::vector<Ace>{aces[0], allowed(sidOf("S-1-22-1-1000"), 0x100001)}));
}

TEST_F(StoredAclEntries, ChangedEntryKeepsItsSid) {
  acl::List list = read({allowed(sidOf("S-1-5-21-1-2-3-1104"), 0x120089)});
  list.entries[0]->permset.permissions = acl::kExecute;
  EXPECT_EQ(written(list), (std::vector<Ace>{allowed(sidOf("S-1-5-21-1-2-3-1104"), 0x100020)}));
}

TEST_F(StoredAclEntries, OwnSidOfKnownGuidBecomesUnixSid) {
  const std::vector<Ace> aces{allowed(guidSid(kNobodys), 0x10000001)};
  const acl::List list = read(aces);
  EXPECT_EQ(written(list), aces);
  membership_.setGuid({PrincipalType::group, 77}, kNobodys);
  EXPECT_EQ(written(list), (std::vector<Ace>{allowed(sidOf("S-1-22-2-77"), 0x10000001)}));
}

TEST_F(StoredAclEntries, SidResolvingToUidBecomesUnixSid) {
  const std::vector<Ace> aces{allowed(sidOf("S-1-5-21-1-2-3-1105"), 0x10000001)};
  const std::vector<Ace> expected{allowed(sidOf("S-1-22-1-1001"), 0x10000001)};
  EXPECT_EQ(written(read(aces)), expected);
  EXPECT_EQ(written(madeAfresh(read(aces)), aces), expected);
}

TEST_F(StoredAclEntries, ReadSidNeedsNoRemembering) {
  const std::vector<Ace> aces{allowed(sidOf("S-1-5-21-1-2-3-1104"), 0x120089)};
  const acl::List list = read(aces);
  PrincipalSids others(membership_, "");
  std::vector<Ace> written;
  EXPECT_EQ(writeEntries(others, list, {}, written), 0);
  EXPECT_EQ(written, aces);
}

TEST_F(StoredAclEntries, ForgottenSidIsInvalidAndMatchesNoPrincipal) {
  const Guid forgotten = foreignGuid(sidOf("S-1-5-21-1-2-3-1104"));
  std::vector<Ace> aces;
  EXPECT_EQ(writeEntries(sids_, ofOne(acl::kExtendedAllow, forgotten, 2), {}, aces), EINVAL);
}

TEST_F(StoredAclEntries, AForeignEntryOfElsewhereIsInvalid) {
  std::vector<Ace> aces;
  EXPECT_EQ(writeEntries(sids_, ofOne(acl::kForeignTag, kNobodys, 0), {}, aces), EINVAL);
}

TEST_F(StoredAclEntries, MembershipFailureAllowsReadingButNotCreatingEntries) {
  membership_.failWith(EIO);
  acl::List list;
  EXPECT_EQ(readEntries(sids_, {allowed(sidOf("S-1-22-1-1000"), 1)}, list), 0);
  ASSERT_EQ(list.entries.size(), 1U);
  EXPECT_EQ(list.entries[0]->qualifier, computedGuid({PrincipalType::user, 1000}));
  std::vector<Ace> aces;
  EXPECT_EQ(writeEntries(sids_, ofOne(acl::kExtendedAllow, kRecords, 2), {}, aces), EIO);
}

TEST_F(StoredAclEntries, MembershipFailureKeepsUnknownPrincipalsOnDisk) {
  const std::vector<Ace> stored{allowed(guidSid(kNobodys), 0x120089)};
  const acl::List list = madeAfresh(read(stored));
  const acl::List passedOn = read(stored);
  membership_.failWith(EIO);
  EXPECT_EQ(written(list, stored), stored);
  EXPECT_EQ(written(passedOn), stored) << "of a folder, for what is inside";
  std::vector<Ace> aces;
  EXPECT_EQ(writeEntries(sids_, list, {}, aces), EIO) << "it may be somebody's";
}

}  // namespace
}  // namespace paddock::nt_acl
