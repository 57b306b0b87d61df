// What membership.h promises.
#include <gtest/gtest.h>

#include <cerrno>

#include "base/guid.h"
#include "directory_subject.h"
#include "platform/linux/accounts/linux_membership.h"
#include "platform/testing/in_memory_membership.h"

namespace paddock::contract {
namespace {

class MembershipSubject {
 public:
  virtual ~MembershipSubject() = default;
  virtual Membership& membership() = 0;
  // Gives the user or group a record with that GUID.
  virtual void setGuid(const Principal& principal, const Guid& guid) = 0;
};

class InMemoryMembershipSubject final : public MembershipSubject {
 public:
  Membership& membership() override { return membership_; }
  void setGuid(const Principal& principal, const Guid& guid) override {
    membership_.setGuid(principal, guid);
  }

 private:
  InMemoryMembership membership_;
};

class LinuxMembershipSubject final : public MembershipSubject {
 public:
  Membership& membership() override { return membership_; }
  void setGuid(const Principal& principal, const Guid& guid) override {
    const bool user = principal.type == PrincipalType::user;
    const auto record = directory_.service().openLocal()->localNode()->newRecord(
        "name of " + std::to_string(principal.id), user ? schema::kUsers : schema::kGroups);
    record->setAttributesAndValues(
        {{user ? schema::kUniqueID : schema::kPrimaryGroupID, std::to_string(principal.id)},
         {schema::kGeneratedUID, guidText(guid)}});
  }

 private:
  LinuxSubject directory_;
  LinuxMembership membership_{directory_.service()};
};

struct MembershipKind {
  const char* name;
  std::unique_ptr<MembershipSubject> (*make)();
};
const MembershipKind kKinds[] = {
    {"InMemory", [] { return std::unique_ptr<MembershipSubject>(new InMemoryMembershipSubject); }},
    {"Linux", [] { return std::unique_ptr<MembershipSubject>(new LinuxMembershipSubject); }},
};

class MembershipContract : public ::testing::TestWithParam<MembershipKind> {
 protected:
  Guid guidOf(const Principal& principal) {
    Guid guid;
    Membership& membership = subject_->membership();
    EXPECT_EQ(principal.type == PrincipalType::user ? membership.uidToGuid(principal.id, guid)
                                                    : membership.gidToGuid(principal.id, guid),
              0);
    return guid;
  }
  std::optional<Principal> principalOf(const Guid& guid) {
    Principal principal{PrincipalType::user, 12345};
    const int error = subject_->membership().guidToId(guid, principal.id, principal.type);
    if (error == 0) return principal;
    EXPECT_EQ(error, ENOENT);
    EXPECT_EQ(principal.id, 0U);
    return std::nullopt;
  }

  std::unique_ptr<MembershipSubject> subject_ = GetParam().make();
  const Guid own_ = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
};
std::string kindName(const ::testing::TestParamInfo<MembershipKind>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Membership, MembershipContract, ::testing::ValuesIn(kKinds), kindName);

TEST_P(MembershipContract, EveryIdHasAGuidThatMapsBack) {
  for (const std::uint32_t id : {0U, 1U, 89U, 65534U, 3'000'000'000U, 0xFFFFFFFFU})
    for (const PrincipalType type : {PrincipalType::user, PrincipalType::group})
      EXPECT_EQ(principalOf(guidOf({type, id})), (Principal{type, id}));
  EXPECT_NE(guidOf({PrincipalType::user, 7}), guidOf({PrincipalType::group, 7}));
}

TEST_P(MembershipContract, ARecordsOwnGuidWinsBothWays) {
  for (const PrincipalType type : {PrincipalType::user, PrincipalType::group}) {
    Guid guid = own_;
    guid.bytes[15] = type == PrincipalType::user ? 1 : 2;
    subject_->setGuid({type, 4'000'000'000U}, guid);
    EXPECT_EQ(guidOf({type, 4'000'000'000U}), guid);
    EXPECT_EQ(principalOf(guid), (Principal{type, 4'000'000'000U}));
  }
}

TEST_P(MembershipContract, TheComputedGuidStaysAnAlias) {
  const Principal principal{PrincipalType::user, 4'000'000'000U};
  const Guid computed = guidOf(principal);
  subject_->setGuid(principal, own_);
  EXPECT_EQ(principalOf(computed), principal);
}

TEST_P(MembershipContract, AnUnknownGuidIsNobody) {
  EXPECT_EQ(principalOf(own_), std::nullopt);
  EXPECT_EQ(principalOf(Guid{}), std::nullopt);
}

}  // namespace
}  // namespace paddock::contract
