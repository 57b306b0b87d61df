#include "keelhouse/access/principals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/account_names.h"
#include "keelhouse/core/failure.h"
#include "support/keelhouse_session.h"

namespace paddock::keelhouse {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class PrincipalResolution : public SessionFixture {
 protected:
  ResolvedPrincipal resolve(const char* text) { return principals_.resolve(parsePrincipal(text)); }
  Dictionary keysOf(const char* text) { return wireKeys(resolve(text)); }
  // The failure of resolving a name.
  std::pair<ExitStatus, std::string> refusalOf(const char* text) {
    try {
      resolve(text);
    } catch (const Failure& failed) {
      return {failed.status(), failed.what()};
    }
    return {ExitStatus::done, {}};
  }
  void answerRecord(const std::string& record) {
    daemon_.answer(R"({"status":0,"record":)" + record + "}");
  }
  void answerNoRecord() { daemon_.answer(R"({"status":0})"); }
  std::string textOf(const char* guidText) { return principals_.identify(guid(guidText)).text; }
};

TEST(HostAccounts, AreFoundByNameAndId) {
  EXPECT_EQ(hostId(PrincipalType::user, "nobody"), 65534U);
  EXPECT_EQ(hostId(PrincipalType::group, "nogroup"), 65534U);
  EXPECT_EQ(hostName({PrincipalType::user, 0}), "root");
  EXPECT_EQ(hostName({PrincipalType::group, 0}), "root");
}

TEST(HostAccounts, AreAbsentWithoutMatch) {
  EXPECT_EQ(hostId(PrincipalType::user, "nogroup"), std::nullopt);
  EXPECT_EQ(hostId(PrincipalType::group, "nobody"), std::nullopt);
  EXPECT_EQ(hostId(PrincipalType::user, ""), std::nullopt);
  EXPECT_EQ(hostId(PrincipalType::user, std::string("root\0x", 6)), std::nullopt);
  EXPECT_EQ(hostName({PrincipalType::user, 0x7FFF0001}), std::nullopt);
}

TEST_F(PrincipalResolution, HostPrincipalsResolveToIds) {
  EXPECT_EQ(keysOf("user:root"), (Dictionary{{"isUser", 0}, {"uniqueID", 0}}));
  EXPECT_EQ(keysOf("group:nogroup"), (Dictionary{{"isUser", 1}, {"groupID", 65534}}));
  EXPECT_TRUE(daemon_.requests().empty());
}

TEST_F(PrincipalResolution, GuidsAreNotResolved) {
  EXPECT_EQ(keysOf(kOtherGuid), (Dictionary{{"guid", kOtherGuid}}));
  EXPECT_TRUE(daemon_.requests().empty());
}

TEST_F(PrincipalResolution, NamesUnknownToHostResolveInLocalNode) {
  answerRecord(userRecord("zoe", "2000", kOtherGuid));
  EXPECT_EQ(keysOf("user:no-such-zoe"), (Dictionary{{"guid", kOtherGuid}}));
  EXPECT_EQ(daemon_.requests().at(0).target, "POST /v1/paddock_directory/getRecord");
  EXPECT_EQ(daemon_.requests().at(0).body,
            R"({"name":"no-such-zoe","node":"/Search","type":"dsRecTypeStandard:Users"})");
}

TEST_F(PrincipalResolution, RecordWithoutGuidResolvesToItsNumber) {
  answerRecord(groupRecord("zoes", "2001"));
  EXPECT_EQ(keysOf("group:no-such-zoes"), (Dictionary{{"isUser", 1}, {"groupID", 2001}}));
  EXPECT_THAT(daemon_.requests().at(0).body, HasSubstr("dsRecTypeStandard:Groups"));
}

TEST_F(PrincipalResolution, RecordWithoutGuidAndNumberFails) {
  answerRecord(userRecord("zoe", ""));
  const auto [status, text] = refusalOf("user:no-such-zoe");
  EXPECT_EQ(status, ExitStatus::failed);
  EXPECT_THAT(text, HasSubstr("neither a GUID nor a number"));
}

TEST_F(PrincipalResolution, UnknownNamesFail) {
  answerNoRecord();
  const auto [status, text] = refusalOf("user:no-such-zoe");
  EXPECT_EQ(status, ExitStatus::failed);
  EXPECT_EQ(text, "there is no user no-such-zoe, neither on this host nor in a directory node");
}

TEST_F(PrincipalResolution, UnknownNameSuggestsNearestMatch) {
  const auto refusedAs = [this](const char* text, int kinds) {
    for (int kind = 0; kind < kinds; ++kind) answerNoRecord();
    daemon_.answer(R"({"status":"ok"})");
    answerRecords(userRecord("quirina", "2000"), groupRecord("quirinals", "2001"));
    return refusalOf(text).second;
  };
  EXPECT_THAT(refusedAs("user:nobdoy", 1), EndsWith("a directory node: did you mean nobody?"));
  EXPECT_THAT(refusedAs("group:nogruop", 1), EndsWith(": did you mean nogroup?"));
  EXPECT_THAT(refusedAs("user:qiurina", 1), EndsWith(": did you mean quirina?"));
  EXPECT_THAT(refusedAs("group:qiurina", 1), EndsWith("directory node")) << "that is a user";
  EXPECT_THAT(refusedAs("quirinalz", 2), EndsWith(": did you mean group:quirinals?"));
  EXPECT_THAT(refusedAs("nobdoy", 2), EndsWith(": did you mean user:nobody?"));
  EXPECT_THAT(refusedAs("user:no-such-zoe", 1), EndsWith("directory node"));
}

TEST(HostAccounts, AreListedUpToLimit) {
  EXPECT_THAT(hostNames(PrincipalType::user, 5000), ::testing::Contains("nobody"));
  EXPECT_THAT(hostNames(PrincipalType::group, 5000), ::testing::Contains("nogroup"));
  EXPECT_THAT(hostNames(PrincipalType::user, 2), ::testing::IsEmpty());
  EXPECT_THAT(hostNames(PrincipalType::group, 2), ::testing::IsEmpty());
}

TEST_F(PrincipalResolution, UnavailableDirectoryFailsResolution) {
  daemon_.answer(R"({"status":5})");
  EXPECT_THAT(refusalOf("user:no-such-zoe").second, HasSubstr("Input/output error (EIO, 5)"));
}

TEST_F(PrincipalResolution, NumbersWithoutMatchingNameAreIds) {
  answerNoRecord();
  EXPECT_EQ(keysOf("user:2147418113"), (Dictionary{{"isUser", 0}, {"uniqueID", 2147418113}}));
  answerNoRecord();
  EXPECT_EQ(keysOf("group:0"), (Dictionary{{"isUser", 1}, {"groupID", 0}}));
  for (const char* text : {"user:-1", "user:4294967295", "user:99999999999999999999"}) {
    answerNoRecord();
    EXPECT_EQ(refusalOf(text).first, ExitStatus::failed) << text;
  }
}

TEST_F(PrincipalResolution, NameWithoutKindResolvesToOnlyMatch) {
  answerNoRecord();  // no group nobody
  EXPECT_EQ(keysOf("nobody"), (Dictionary{{"isUser", 0}, {"uniqueID", 65534}}));
  answerNoRecord();  // no user nogroup
  EXPECT_EQ(keysOf("nogroup"), (Dictionary{{"isUser", 1}, {"groupID", 65534}}));
}

TEST_F(PrincipalResolution, AmbiguousNameWithoutKindIsRefused) {
  const auto [status, text] = refusalOf("root");
  EXPECT_EQ(status, ExitStatus::usage);
  EXPECT_EQ(text, "root is both a user and a group: write user:root or group:root");
  answerRecord(groupRecord("nobody", "2000"));
  EXPECT_EQ(refusalOf("nobody").first, ExitStatus::usage);
}

TEST_F(PrincipalResolution, UnknownNameWithoutKindFails) {
  answerNoRecord();
  answerNoRecord();
  EXPECT_EQ(refusalOf("no-such-zoe").first, ExitStatus::failed);
  answerNoRecord();
  answerNoRecord();
  const auto [status, text] = refusalOf("2147418113");
  EXPECT_EQ(status, ExitStatus::usage);
  EXPECT_THAT(text, HasSubstr("for a number write user:2147418113 or group:2147418113"));
}

TEST_F(PrincipalResolution, HostPrincipalsAreIdentifiedByGuid) {
  EXPECT_EQ(textOf(kRootGuid), "user:root");
  EXPECT_EQ(textOf(kNogroupGuid), "group:nogroup");
  EXPECT_EQ(principals_.identify(guid(kNobodyGuid)).id, (Principal{PrincipalType::user, 65534}));
  EXPECT_TRUE(daemon_.requests().empty());
}

TEST_F(PrincipalResolution, LocalNodePrincipalsAreIdentifiedByGuid) {
  answerRecords(userRecord("no-such-zoe", "2000", kOtherGuid), "");
  EXPECT_EQ(textOf(kOtherGuid), "user:no-such-zoe");
  EXPECT_EQ(principals_.identify(guid(kOtherGuid)).id, (Principal{PrincipalType::user, 2000}));
  EXPECT_EQ(daemon_.requests().size(), 2U);
}

TEST_F(PrincipalResolution, LocalNodePrincipalsAreIdentifiedByNumber) {
  answerRecords("", groupRecord("no-such-zoes", "2147418114"));
  EXPECT_EQ(textOf(kGroupGuid), "group:no-such-zoes");
}

TEST_F(PrincipalResolution, NameConflictWithHostShowsGuid) {
  answerRecords(userRecord("nobody", "2000", kOtherGuid), "");
  EXPECT_EQ(textOf(kOtherGuid), kOtherGuid);
  EXPECT_EQ(principals_.identify(guid(kOtherGuid)).id, (Principal{PrincipalType::user, 2000}));
}

TEST_F(PrincipalResolution, UnnamedPrincipalsShowTheirNumber) {
  answerRecords("", "");
  EXPECT_EQ(textOf(kUserGuid), "user:2147418113");
  EXPECT_EQ(textOf(kGroupGuid), "group:2147418114");
  EXPECT_EQ(daemon_.requests().size(), 2U) << "the records are asked for once";
}

TEST_F(PrincipalResolution, WellKnownPrincipalsHaveNames) {
  daemon_.answer(R"({"status":0,"records":[]})");
  daemon_.answer(R"({"status":0,"records":[]})");
  EXPECT_EQ(textOf("5349443A-85A0-85C3-9E19-9D2B4E6E0C32"), "everyone");
}

TEST_F(PrincipalResolution, WellKnownPrincipalsResolveByName) {
  answerNoRecord();
  answerNoRecord();
  EXPECT_EQ(keysOf("everyone"), (Dictionary{{"guid", "5349443A-85A0-85C3-9E19-9D2B4E6E0C32"}}));
}

TEST_F(PrincipalResolution, UnassignedGuidsAreShownUnchanged) {
  answerRecords(userRecord("zoe", "2000"), "");
  EXPECT_EQ(textOf(kOtherGuid), kOtherGuid);
  EXPECT_EQ(principals_.identify(guid(kOtherGuid)).id, std::nullopt);
}

TEST_F(PrincipalResolution, UnavailableDirectoryShowsNumbers) {
  daemon_.answer(R"({"error":"no such plug-in"})", 404);
  EXPECT_EQ(textOf(kUserGuid), "user:2147418113");
  EXPECT_EQ(textOf(kOtherGuid), kOtherGuid);
}

TEST_F(PrincipalResolution, GuidAndIdIdentifySamePrincipal) {
  answerRecords(userRecord("no-such-zoe", "2147418113", kOtherGuid), "");
  const ResolvedPrincipal byId{std::nullopt, Principal{PrincipalType::user, 0x7FFF0001}};
  EXPECT_TRUE(principals_.same(byId, guid(kUserGuid)));
  EXPECT_TRUE(principals_.same(byId, guid(kOtherGuid)));
  EXPECT_FALSE(principals_.same(byId, guid(kRootGuid)));
  EXPECT_FALSE(principals_.same(byId, guid(kGroupGuid)));
  EXPECT_TRUE(principals_.same({guid(kOtherGuid), {}}, guid(kUserGuid)));
  EXPECT_TRUE(principals_.same({guid(kGroupGuid), {}}, guid(kGroupGuid)));
  EXPECT_FALSE(principals_.same({guid(kGroupGuid), {}}, guid(kUserGuid)));
}

TEST_F(PrincipalResolution, UnreachableNodeQualifiesUnknownNameError) {
  answerNoRecord();
  daemon_.answer(R"({"status":"ok","nodes":[{"path":"/LDAP/site","state":"unreachable",)"
                 R"("error":"gone","since":"2026-01-31T12:00:00Z"}]})");
  const auto [status, text] = refusalOf("user:no-such-zoe");
  EXPECT_EQ(status, ExitStatus::failed);
  EXPECT_EQ(text.substr(0, text.find('\n')),
            "there is no user no-such-zoe on this host and in the directory nodes that answer; "
            "/LDAP/site, which may have one, cannot be asked now");
  EXPECT_EQ(daemon_.requests().at(1).target, "GET /v1/health");
  answerNoRecord();
  daemon_.answer(R"({"status":"ok","nodes":[]})");
  EXPECT_EQ(refusalOf("user:no-such-zoe").second,
            "there is no user no-such-zoe, neither on this host nor in a directory node");
}

}  // namespace
}  // namespace paddock::keelhouse
