#include "keelhouse/access/privileges_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"
#include "keelhouse/core/json_document.h"
#include "support/keelhouse_session.h"
#include "wire/json.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;

class PrivilegesDocument : public SessionFixture {
 protected:
  static Dictionary parse(const std::string& json) {
    std::string error;
    auto value = wire::parseJson(json, error);
    EXPECT_TRUE(value) << error;
    return *value->dictionary();
  }
  WantedPrivileges wanted(const std::string& json) {
    return wantedPrivileges(parse(json), principals_);
  }
  WantedPrivileges entry(const std::string& json) { return wanted(R"({"acl":[)" + json + "]}"); }
  // Why the document is refused.
  std::string refusal(const std::string& json) {
    try {
      wanted(json);
      return "";
    } catch (const Failure& failed) {
      EXPECT_EQ(failed.status(), ExitStatus::usage);
      return failed.what();
    }
  }
  std::string entryRefusal(const std::string& json) {
    return refusal(R"({"acl":[{"allow":true,"kind":"user","name":"root","rights":[]},)" + json +
                   "]}");
  }
};

Dictionary ace(const char* guid, const char* allow, int bitmap, int flags, const char* name = "") {
  return {{"guid", guid},     {"displayName", name}, {"allowPermission", allow},
          {"bitmap", bitmap}, {"flags", flags},      {"isUser", 0}};
}

TEST_F(PrivilegesDocument, EntriesHaveKindsBooleansAndWords) {
  answerRecords("", "");
  const Dictionary privileges{{"fileType", "directory"}};
  const Dictionary document = aclDocument(privileges, "/srv/a",
                                          {ace(kNobodyGuid, "YES", 2698 | 4, 96, "Nobody Known"),
                                           ace(kNogroupGuid, "NO", 0, 0, "nogroup"),
                                           ace(kOtherGuid, "YES", 16382, 16 | 256, kOtherGuid)},
                                          principals_);
  EXPECT_EQ(document, parse(
                          R"({"path":"/srv/a","acl":[
            {"kind":"user","name":"nobody","fullName":"Nobody Known","guid":")" +
                          std::string(kNobodyGuid) +
                          R"(","allow":true,"rights":["read","add-file"],"inheritance":["inherit"]},
            {"kind":"group","name":"nogroup","guid":")" +
                          kNogroupGuid + R"(","allow":false,"rights":[]},
            {"kind":"unknown","guid":")" +
                          kOtherGuid + R"(","allow":true,"rights":["full"],
             "inheritance":["only-inherit","inherited"]}]})"));
}

TEST_F(PrivilegesDocument, PrintedDocumentIsAccepted) {
  answerRecords("", "");
  Array acl;
  for (int flags = 0; flags <= 0x1F0; flags += 16) {
    acl.emplace_back(ace(flags % 32 == 0 ? kOtherGuid : kNobodyGuid, flags % 64 == 0 ? "YES" : "NO",
                         (flags * 37) & 16382, flags));
  }
  for (const char* type : {"directory", "regular"}) {
    const WantedPrivileges back = wantedPrivileges(
        aclDocument({{"fileType", type}}, "/srv/a", acl, principals_), principals_);
    EXPECT_TRUE(isSameList(*back.acl, acl));
  }
}

TEST_F(PrivilegesDocument, UnnamedOwnersAreShownByNumber) {
  const Dictionary privileges{{"path", "/srv/a"}, {"fileType", "directory"}, {"owner", ""},
                              {"group", "crew"},  {"privs", "770"},          {"acl", Array{}}};
  EXPECT_EQ(privilegesDocument(privileges, ModeAndIds{"2770", "4711", "7"}, principals_),
            parse(R"({"path":"/srv/a","type":"directory","owner":"4711","group":"crew",
                      "mode":"2770","acl":[]})"));
  EXPECT_EQ(privilegesDocument({{"owner", "anna"}, {"privs", "770"}, {"aclErr", "INVALID_ACL_ERR"}},
                               std::nullopt, principals_),
            parse(R"({"owner":"anna","mode":"770","aclError":"INVALID_ACL_ERR"})"));
}

TEST_F(PrivilegesDocument, HandwrittenDocumentNeedsNoGuid) {
  const WantedPrivileges back = entry(
      R"({"kind":"group","name":"nogroup","allow":false,"rights":["Write"],"inheritance":["INHERIT"]})");
  EXPECT_EQ(back.acl->at(0).sent, parse(R"({"isUser":1,"groupID":65534,"allowPermission":"NO",
                                            "bitmap":1396,"flags":96})"));
}

TEST_F(PrivilegesDocument, UnknownKeyIsNamedWithNearestMatch) {
  EXPECT_EQ(refusal(R"({"ownr":"anna"})"),
            "the document has the unknown key \"ownr\": did you mean owner?");
  EXPECT_EQ(entryRefusal(R"({"allow":true,"kind":"user","name":"root","right":["read"]})"),
            "entry 2 has the unknown key \"right\": did you mean rights?");
  EXPECT_EQ(refusal(R"({"zzzzzz":1})"), "the document has the unknown key \"zzzzzz\"");
}

TEST_F(PrivilegesDocument, IncompleteEntryIsNamed) {
  EXPECT_THAT(entryRefusal(R"({"kind":"user","name":"root","rights":[]})"),
              HasSubstr("entry 2 says neither \"allow\": true nor false"));
  EXPECT_EQ(entryRefusal(R"({"allow":true,"kind":"user","name":"root"})"),
            "entry 2 has no \"rights\"");
  EXPECT_THAT(entryRefusal(R"({"allow":true,"rights":[]})"), HasSubstr("whom it is about"));
  EXPECT_THAT(entryRefusal(R"({"allow":true,"name":"root","rights":[]})"), HasSubstr("\"kind\""));
  EXPECT_THAT(entryRefusal(R"({"allow":true,"guid":"x","rights":[]})"), HasSubstr("no GUID: x"));
  EXPECT_THAT(entryRefusal(R"({"allow":true,"kind":"user","name":"root","rights":["reads"]})"),
              HasSubstr("\"reads\" is no right"));
  EXPECT_EQ(entryRefusal("7"), "entry 2 is no JSON object");
}

TEST_F(PrivilegesDocument, ValueOfWrongTypeIsRefused) {
  EXPECT_EQ(entryRefusal(R"({"allow":"YES","kind":"user","name":"root","rights":[]})"),
            "entry 2: \"allow\" must be true or false");
  EXPECT_EQ(entryRefusal(R"({"allow":true,"kind":"user","name":"root","rights":"read"})"),
            "entry 2: \"rights\" must be an array");
  EXPECT_EQ(entryRefusal(R"({"allow":true,"kind":"user","name":"root","rights":[2]})"),
            "entry 2: \"rights\" must be an array of texts");
  EXPECT_EQ(refusal(R"({"mode":770})"), "the document: \"mode\" must be a text");
  EXPECT_EQ(refusal(R"({"acl":{}})"), "the document: \"acl\" must be an array");
}

TEST_F(PrivilegesDocument, NameContradictingGuidIsRefused) {
  const std::string guid = kNobodyGuid;
  EXPECT_NO_THROW(
      entry(R"({"allow":true,"kind":"user","name":"nobody","rights":[],"guid":")" + guid + "\"}"));
  EXPECT_EQ(entryRefusal(R"({"allow":true,"kind":"user","name":"root","rights":[],"guid":")" +
                         guid + "\"}"),
            "entry 2 is about user:root, but its \"guid\" is that of user:nobody\n"
            "Leave out one of the two.");
}

}  // namespace
}  // namespace paddock::keelhouse
