#include "keelhouse/share/share_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"
#include "wire/json.h"

namespace paddock::keelhouse {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

Dictionary parse(const std::string& json) {
  std::string error;
  auto value = wire::parseJson(json, error);
  EXPECT_TRUE(value) << error;
  return *value->dictionary();
}

// A document as one prints it, of which `json` is what matters here.
Dictionary document(const std::string& json) {
  Dictionary dictionary = parse(json);
  if (!dictionary.contains("path")) dictionary.set("path", "/srv/a");
  return dictionary;
}

constexpr const char* kShare =
    R"({"path":"/srv/a","name":"a","isSharedOverVSP":true,"nameOverVSP":"v","nameOverSMB":"s",
        "nameOverFTP":"","nfsExportRecord":{"path":"/srv/a","clients":[
          {"host":"192.0.2.1","options":["rw","sync"]},{"host":"*","options":[]}]},
        "isBackstowBackup":true,"backstowBackupUUID":"X","isIndexingEnabled":false,
        "mountedOnPath":"/","isShared":true})";

std::string refusal(const std::string& json, const Dictionary& stored = {}) {
  try {
    changesFrom(document(json), stored);
    return "";
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::usage);
    return failed.what();
  }
}

TEST(ShareDocument, OwnDocumentChangesNothing) {
  EXPECT_TRUE(changesFrom(document(kShare), parse(kShare)).empty());
}

TEST(ShareDocument, MissingPathIsRefused) {
  for (const char* json : {"{}", R"({"name":"b"})", R"({"path":""})"}) {
    for (const Dictionary& stored : {Dictionary(), parse(kShare)}) {
      EXPECT_THROW(changesFrom(parse(json), stored), Failure) << json;
    }
  }
}

TEST(ShareDocument, CreatesShareWithAllProperties) {
  const ShareChanges changes = changesFrom(document(kShare), {});
  EXPECT_EQ(changes.name, "a");
  EXPECT_EQ(changes.vsp, true);
  EXPECT_EQ(changes.vspName, "v");
  EXPECT_EQ(changes.smbName, "s");
  EXPECT_EQ(changes.ftp, false);
  EXPECT_EQ(changes.ftpName, std::nullopt);
  EXPECT_THAT(changes.nfsClients, ElementsAre("192.0.2.1(rw,sync)", "*"));
  EXPECT_EQ(changes.backup, true);
  EXPECT_FALSE(changes.noNfs);
  EXPECT_FALSE(changes.noAutomount);
}

TEST(ShareDocument, OmittedPropertiesAreRemoved) {
  Dictionary stored = parse(kShare);
  stored.set("isAutomounted", true);
  const ShareChanges changes = changesFrom(document(R"({"name":"b"})"), stored);
  EXPECT_EQ(changes.name, "b");
  EXPECT_EQ(changes.vsp, false);
  EXPECT_EQ(changes.smb, false);
  EXPECT_EQ(changes.ftp, std::nullopt) << "it had none";
  EXPECT_TRUE(changes.noNfs);
  EXPECT_TRUE(changes.noAutomount);
  EXPECT_EQ(changes.backup, false);
}

TEST(ShareDocument, SelectsStatedAutomountProtocol) {
  for (const int type : {0, 1}) {
    const ShareChanges changes = changesFrom(
        document(R"({"isAutomounted":true,"automountMountPath":"/m","automountDSPath":"/LDAP/x",
                  "isSharedOverVSP":true,"nfsExportRecord":{"clients":[{"host":"*"}]},
                  "automountFileSystemType":)" +
                 std::to_string(type) + "}"),
        {});
    EXPECT_EQ(changes.automountPath, "/m");
    EXPECT_EQ(changes.automountNode, "/LDAP/x");
    const Dictionary record = newShareRecord("/srv/a", changes);
    EXPECT_EQ(record.integer("automountFileSystemType"), type);
  }
}

TEST(ShareDocument, SmbOptionsRoundTrip) {
  const Dictionary share = document(
      R"({"smb":{"readOnly":true,"comment":"c","allowHosts":["192.0.2.1","a.example"],
                 "options":["veto files = /x/","strict sync = yes"]}})");
  const SmbChanges changes = changesFrom(share, {}).smbOptions;
  const samba::SmbOptions options = changedOptions({}, changes);
  Dictionary wanted = *share.dictionary("smb");
  EXPECT_EQ(samba::optionsDictionary(options), wanted);
  EXPECT_TRUE(changesFrom(share, share).smbOptions.empty());
  const SmbChanges removal = changesFrom(document("{}"), share).smbOptions;
  EXPECT_EQ(changedOptions(options, removal), samba::SmbOptions());
  EXPECT_THAT(refusal(R"({"smb":{"readonly":true}})"), HasSubstr("did you mean readOnly?"));
}

TEST(ShareDocument, UnknownKeySuggestsNearestKnownKey) {
  EXPECT_EQ(refusal(R"({"nameOverSmb":"x"})"),
            "the document has the unknown key \"nameOverSmb\": did you mean nameOverSMB?");
  EXPECT_THAT(refusal(R"({"nfsExportRecord":{"client":[]}})"), HasSubstr("did you mean clients?"));
  EXPECT_THAT(refusal(R"({"nfsExportRecord":{"clients":[{"hots":"x"}]}})"),
              HasSubstr("did you mean host?"));
}

TEST(ShareDocument, InvalidValuesAreRefused) {
  EXPECT_THAT(refusal(R"({"isShared":false})"), HasSubstr("not shared"));
  EXPECT_THAT(refusal(R"({"isSharedOverVSP":"YES"})"), HasSubstr("true or false"));
  EXPECT_THAT(refusal(R"({"name":7})"), HasSubstr("must be a text"));
  EXPECT_THAT(refusal(R"({"nfsExportRecord":[]})"), HasSubstr("no JSON object"));
  EXPECT_THAT(refusal(R"({"nfsExportRecord":{}})"), HasSubstr("\"clients\""));
  EXPECT_THAT(refusal(R"({"nfsExportRecord":{"clients":[{"options":[]}]}})"),
              HasSubstr("no \"host\""));
  EXPECT_THAT(refusal(R"({"isAutomounted":true,"automountFileSystemType":"NFS"})"),
              HasSubstr("0 (VSP) or 1 (NFS)"));
}

TEST(ShareDocument, UnparsedExportsLineStaysButIsNotCreated) {
  const std::string json = R"({"nfsExportRecord":{"path":"/srv/a","line":"/srv/a !"}})";
  EXPECT_THAT(refusal(json), HasSubstr("\"line\""));
  EXPECT_EQ(refusal(json, parse(json)), "");
}

}  // namespace
}  // namespace paddock::keelhouse
