#include "platform/linux/acl/principal_sids.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <thread>

#include "platform/linux/acl/sid_forms.h"
#include "platform/testing/in_memory_membership.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using nt_acl::Sid;

Sid sidOf(const char* text) { return nt_acl::parseSid(text).value(); }
Guid guidOf(const char* text) { return parseGuid(text).value(); }

// Answers from a configured list, and counts the queries.
class ListedResolver final : public SidResolver {
 public:
  struct State {
    std::map<Sid, Principal> known;
    int error = ENOENT;  // of every other SID
    std::vector<std::string> asked;
  };
  explicit ListedResolver(std::shared_ptr<State> state) : state_(std::move(state)) {}

  int principalOf(const Sid& sid, Principal& principal) override {
    state_->asked.push_back(nt_acl::sidText(sid));
    const auto found = state_->known.find(sid);
    if (found == state_->known.end()) return state_->error;
    principal = found->second;
    return 0;
  }

 private:
  std::shared_ptr<State> state_;
};

class PrincipalSidMapping : public testing::Test {
 protected:
  PrincipalSids make() {
    return {membership_, path(), std::make_unique<ListedResolver>(resolver_)};
  }
  std::string path() const { return folder_.path("lib/paddock/foreign-sids.sqlite"); }

  static Sid sidFor(PrincipalSids& sids, const Guid& guid) {
    Sid sid;
    EXPECT_EQ(sids.sidFor(guid, sid), 0);
    return sid;
  }
  static Guid guidFor(PrincipalSids& sids, const Sid& sid) {
    Guid guid;
    EXPECT_EQ(sids.guidFor(sid, guid), 0);
    return guid;
  }

  TestFolder folder_;
  InMemoryMembership membership_;
  std::shared_ptr<ListedResolver::State> resolver_ = std::make_shared<ListedResolver::State>();
  PrincipalSids sids_ = make();
};

const Sid kDomainUser = {5, {21, 1, 2, 3, 1104}};

TEST_F(PrincipalSidMapping, AUserIsAUnixUserSid) {
  Guid guid;
  ASSERT_EQ(membership_.uidToGuid(1000, guid), 0);
  EXPECT_EQ(sidFor(sids_, guid), sidOf("S-1-22-1-1000"));
  EXPECT_EQ(guidFor(sids_, sidOf("S-1-22-1-1000")), guid);
}

TEST_F(PrincipalSidMapping, AGroupIsAUnixGroupSid) {
  Guid guid;
  ASSERT_EQ(membership_.gidToGuid(100, guid), 0);
  EXPECT_EQ(sidFor(sids_, guid), sidOf("S-1-22-2-100"));
  EXPECT_EQ(guidFor(sids_, sidOf("S-1-22-2-100")), guid);
}

TEST_F(PrincipalSidMapping, OtherGuidsMapToSidsOfOwnAuthority) {
  const Guid guid = guidOf("00112233-4455-6677-8899-AABBCCDDEEFF");
  EXPECT_EQ(sidFor(sids_, guid), nt_acl::guidSid(guid));
  EXPECT_EQ(guidFor(sids_, nt_acl::guidSid(guid)), guid);
}

TEST_F(PrincipalSidMapping, UnixAndOwnSidsNeverReachResolver) {
  guidFor(sids_, sidOf("S-1-22-1-1000"));
  guidFor(sids_, sidOf("S-1-22-2-100"));
  guidFor(sids_, nt_acl::guidSid({}));
  guidFor(sids_, nt_acl::markerSid());
  EXPECT_TRUE(resolver_->asked.empty());
}

TEST_F(PrincipalSidMapping, ResolvedSidIsThatUserOrGroup) {
  resolver_->known[kDomainUser] = {PrincipalType::user, 10001};
  resolver_->known[sidOf("S-1-5-32-544")] = {PrincipalType::group, 10002};
  EXPECT_EQ(guidFor(sids_, kDomainUser), guidFor(sids_, sidOf("S-1-22-1-10001")));
  EXPECT_EQ(guidFor(sids_, sidOf("S-1-5-32-544")), guidFor(sids_, sidOf("S-1-22-2-10002")));
  EXPECT_EQ(sidFor(sids_, guidFor(sids_, kDomainUser)), sidOf("S-1-22-1-10001"));
}

TEST_F(PrincipalSidMapping, UnknownSidRoundTripsUnchanged) {
  for (const char* text :
       {"S-1-5-21-1-2-3-1104", "S-1-5-32-544", "S-1-0-0", "S-1-22-3-1", "S-1-16-4096", "S-1-5"}) {
    const Guid guid = guidFor(sids_, sidOf(text));
    EXPECT_EQ(guid, nt_acl::foreignGuid(sidOf(text))) << text;
    EXPECT_EQ(sidFor(sids_, guid), sidOf(text)) << text;
  }
  EXPECT_EQ(resolver_->asked.size(), 6U);
}

// Winbind would map them to a group that it allocates, whose members only winbind knows.
TEST_F(PrincipalSidMapping, WellKnownSidsAreNotAskedOfResolver) {
  for (const char* text :
       {"S-1-1-0", "S-1-3-0", "S-1-3-1", "S-1-3-4", "S-1-5-2", "S-1-5-7", "S-1-5-11", "S-1-5-18"}) {
    resolver_->known[sidOf(text)] = {PrincipalType::group, 3000};
    EXPECT_EQ(sidFor(sids_, guidFor(sids_, sidOf(text))), sidOf(text)) << text;
  }
  EXPECT_TRUE(resolver_->asked.empty());
}

TEST_F(PrincipalSidMapping, AResolverThatFailsKnowsNobody) {
  resolver_->error = ETIMEDOUT;
  EXPECT_EQ(sidFor(sids_, guidFor(sids_, kDomainUser)), kDomainUser);
}

TEST_F(PrincipalSidMapping, WithoutAResolverForeignSidsAreRemembered) {
  PrincipalSids sids(membership_, path());
  EXPECT_EQ(sidFor(sids, guidFor(sids, kDomainUser)), kDomainUser);
}

TEST_F(PrincipalSidMapping, WrittenForeignSidGoesBackAfterRestart) {
  const Guid guid = guidFor(sids_, kDomainUser);
  sids_.record({guid});
  PrincipalSids later = make();
  EXPECT_EQ(sidFor(later, guid), kDomainUser);
}

// Whoever may look at a folder would otherwise write to the host's files, and have as many SIDs
// recorded as lists can hold, until those that others need are gone.
TEST_F(PrincipalSidMapping, ReadingRecordsNothing) {
  const Guid guid = guidFor(sids_, kDomainUser);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("lib")));
  sids_.record({guid});
  const std::string before = readWholeFile(path());
  const auto written = std::filesystem::last_write_time(path());
  for (std::uint32_t number = 0; number < 100; ++number) guidFor(sids_, {5, {21, number}});
  EXPECT_EQ(readWholeFile(path()), before);
  EXPECT_EQ(std::filesystem::last_write_time(path()), written);
  PrincipalSids later = make();
  Sid sid;
  EXPECT_EQ(later.sidFor(guidFor(sids_, {5, {21, 7}}), sid), ENOENT);
  EXPECT_EQ(sidFor(later, guid), kDomainUser);
}

TEST_F(PrincipalSidMapping, ReadingLeavesDamagedFileInPlace) {
  std::filesystem::create_directories(folder_.path("lib/paddock"));
  const std::string garbage(8192, 'x');
  writeWholeFile(path(), garbage);
  const Guid guid = guidFor(sids_, kDomainUser);
  EXPECT_EQ(readWholeFile(path()), garbage);
  sids_.record({guid});
  EXPECT_EQ(readWholeFile(path() + ".damaged"), garbage);
  PrincipalSids later = make();
  EXPECT_EQ(sidFor(later, guid), kDomainUser);
}

TEST_F(PrincipalSidMapping, OnlyForeignSidsAreRecorded) {
  sids_.record({guidFor(sids_, sidOf("S-1-22-1-1000")), guidFor(sids_, sidOf("S-1-1-0")),
                nt_acl::foreignGuid(kDomainUser)});
  EXPECT_FALSE(std::filesystem::exists(path())) << "none was read that needs it";
}

TEST_F(PrincipalSidMapping, ForeignSidIsRestoredAfterResolverLearnsIt) {
  const Guid guid = guidFor(sids_, kDomainUser);
  sids_.record({guid});
  resolver_->known[kDomainUser] = {PrincipalType::user, 10001};
  PrincipalSids later = make();
  EXPECT_EQ(sidFor(later, guid), kDomainUser);
  EXPECT_EQ(guidFor(later, kDomainUser), guidFor(later, sidOf("S-1-22-1-10001")));
}

TEST_F(PrincipalSidMapping, ForgottenForeignSidGuidMatchesNoOtherPrincipal) {
  Sid sid;
  EXPECT_EQ(sids_.sidFor(nt_acl::foreignGuid(kDomainUser), sid), ENOENT);
  PrincipalSids withoutFile(membership_, "");
  EXPECT_EQ(withoutFile.sidFor(nt_acl::foreignGuid(kDomainUser), sid), ENOENT);
}

TEST_F(PrincipalSidMapping, WithoutFileForeignSidsAreRememberedInMemory) {
  PrincipalSids sids(membership_, "");
  EXPECT_EQ(sidFor(sids, guidFor(sids, kDomainUser)), kDomainUser);
}

TEST_F(PrincipalSidMapping, UncreatableFileDoesNotPreventUse) {
  PrincipalSids sids(membership_, "/proc/no/such/folder/foreign-sids.sqlite");
  const Guid guid = guidFor(sids, kDomainUser);
  sids.record({guid});
  EXPECT_EQ(sidFor(sids, guid), kDomainUser);
}

TEST_F(PrincipalSidMapping, NoFileIsMadeWithoutAForeignSid) {
  guidFor(sids_, sidOf("S-1-22-1-1000"));
  Sid sid;
  EXPECT_EQ(sids_.sidFor({}, sid), 0);
  struct stat status {};
  EXPECT_NE(::stat(path().c_str(), &status), 0);
}

TEST_F(PrincipalSidMapping, RereadForeignSidTouchesNoFile) {
  const Guid guid = guidFor(sids_, kDomainUser);
  sids_.record({guid});
  ASSERT_EQ(::rename(path().c_str(), (path() + ".elsewhere").c_str()), 0);
  EXPECT_EQ(guidFor(sids_, kDomainUser), guid);
  EXPECT_EQ(sidFor(sids_, guid), kDomainUser);
  struct stat status {};
  EXPECT_NE(::stat(path().c_str(), &status), 0);
}

TEST_F(PrincipalSidMapping, NewestForeignSidsStayInMemory) {
  std::vector<Sid> read;
  for (std::uint32_t number = 0; number < PrincipalSids::kCapacity + 10; ++number)
    read.push_back({5, {21, number}});
  std::vector<Guid> guids;
  for (const Sid& sid : read) guids.push_back(guidFor(sids_, sid));
  for (std::size_t at = 0; at < read.size(); at += 97)
    EXPECT_EQ(sidFor(sids_, guids[at]), read[at]);
}

TEST_F(PrincipalSidMapping, MembershipFailureGivesIdsComputedGuids) {
  resolver_->known[kDomainUser] = {PrincipalType::user, 10001};
  const Guid own = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  membership_.setGuid({PrincipalType::user, 1000}, own);
  const Sid user = sidOf("S-1-22-1-1000");
  membership_.failWith(ETIMEDOUT);
  const Guid guid = guidFor(sids_, user);
  EXPECT_EQ(guid, computedGuid({PrincipalType::user, 1000}));
  EXPECT_EQ(guidFor(sids_, sidOf("S-1-22-2-1000")), computedGuid({PrincipalType::group, 1000}));
  EXPECT_EQ(guidFor(sids_, kDomainUser), computedGuid({PrincipalType::user, 10001}));
  membership_.failWith(0);
  EXPECT_EQ(sidFor(sids_, guid), user) << "what was read then goes back as the same principal";
  EXPECT_EQ(guidFor(sids_, user), own);
}

TEST_F(PrincipalSidMapping, MembershipFailurePreventsWritingGuids) {
  membership_.failWith(ETIMEDOUT);
  Sid sid;
  EXPECT_EQ(sids_.sidFor(computedGuid({PrincipalType::user, 1000}), sid), ETIMEDOUT);
}

TEST_F(PrincipalSidMapping, RememberedSidIsRestoredDuringMembershipFailure) {
  const Guid everyone = guidFor(sids_, sidOf("S-1-1-0"));
  const Guid stranger = guidFor(sids_, kDomainUser);
  membership_.failWith(ETIMEDOUT);
  EXPECT_EQ(sidFor(sids_, everyone), sidOf("S-1-1-0"));
  EXPECT_EQ(sidFor(sids_, stranger), kDomainUser);
  Sid sid;
  EXPECT_EQ(sids_.sidFor(nt_acl::foreignGuid(sidOf("S-1-5-21-1-2-3-9")), sid), ETIMEDOUT);
}

TEST_F(PrincipalSidMapping, ThreadsReadTheSameSidsAtOnce) {
  PrincipalSids sids(membership_, path());
  const auto read = [&] {
    for (std::uint32_t number = 0; number < 200; ++number) {
      const Sid foreign{5, {21, number}};
      Guid guid;
      Sid back;
      EXPECT_EQ(sids.guidFor(foreign, guid), 0);
      EXPECT_EQ(sids.sidFor(guid, back), 0);
      EXPECT_EQ(back, foreign);
    }
  };
  std::vector<std::thread> threads;
  for (int count = 0; count < 4; ++count) threads.emplace_back(read);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace paddock
