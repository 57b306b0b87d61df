// Parsing of Samba's configuration and the table of exports, and the evaluation by smbd.
#include "effectiveprivs/doors.h"

#include <gmock/gmock.h>

#include <string_view>

namespace paddock::effectiveprivs {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kPrinted =
    "# Global parameters\n[global]\n\tserver role = standalone server\n\tread only = No\n\n\n"
    "[Photos]\n\tpath = /srv/photos\n\tvalid users = @root anna \"Be rt\"\n"
    "\tvfs objects = acl_xattr\n\n\n[read me]\n\tpath = /srv/read\n\tread only = Yes\n"
    "\twrite list = anna\n";

SmbPerson anna() { return {"anna", {1000, {1000}}}; }
SmbPerson bert() { return {"bert", {1001, {1001}}}; }
SmbShare shareWith(SmbSection parameters) { return {"x", std::move(parameters)}; }

DoorRights open(const SmbShare& share, const SmbPerson& person = anna()) {
  return smbRights(share, person, {.kind = ListKind::inForce});
}

TEST(SmbConfigurationText, HasSectionsWithWhatGlobalSays) {
  const SmbConfiguration found = parseSmbConfiguration(kPrinted);
  ASSERT_EQ(found.shares.size(), 2U);
  EXPECT_EQ(found.shares[0].name, "Photos");
  EXPECT_EQ(found.shares[0].value("path"), "/srv/photos");
  EXPECT_FALSE(found.shares[0].isOn("read only", true));
  EXPECT_EQ(found.shares[1].name, "read me");
  EXPECT_TRUE(found.shares[1].isOn("read only", false));
}

TEST(SmbShareRule, ShareIsReadOnlyByDefault) {
  EXPECT_EQ(open(shareWith({})).write.access, Access::no);
  EXPECT_THAT(open(shareWith({})).write.why, HasSubstr("read only"));
  EXPECT_EQ(open(shareWith({})).read.access, Access::yes);
  EXPECT_EQ(open(shareWith({{"read only", "No"}})).write.access, Access::yes);
}

TEST(SmbShareRule, ListsOfReadersAndWritersGoFirst) {
  EXPECT_EQ(open(shareWith({{"write list", "bert, anna"}})).write.access, Access::yes);
  const auto share = shareWith({{"read only", "No"}, {"read list", "Anna"}});
  EXPECT_EQ(open(share).write.access, Access::no);
  EXPECT_EQ(open(share, bert()).write.access, Access::yes);
}

TEST(SmbShareRule, ValidUsersAreAdmittedAndInvalidUsersRefused) {
  const SmbShare photos = parseSmbConfiguration(kPrinted).shares[0];
  EXPECT_EQ(open(photos).read.access, Access::yes);
  EXPECT_EQ(open(photos, bert()).read.access, Access::no);
  EXPECT_EQ(open(photos, {"carl", {1002, {0}}}).read.access, Access::yes);
  EXPECT_EQ(open(shareWith({{"invalid users", "@root"}}), {"carl", {1002, {0}}}).read.access,
            Access::no);
}

TEST(SmbShareRule, WhatOnlySambaKnowsCannotBeTold) {
  EXPECT_EQ(open(shareWith({{"valid users", "DOMAIN\\\\anna"}})).read.access, Access::unknown);
  EXPECT_EQ(open(shareWith({{"invalid users", "&crew"}})).read.access, Access::unknown);
  EXPECT_EQ(open(shareWith({{"force user", "bert"}})).read.access, Access::unknown);
}

TEST(SmbShareRule, TheListCountsWithTheModuleAlone) {
  const SmbObject object{.list = noRights("entry 1"), .kind = ListKind::inForce};
  const auto with = shareWith({{"read only", "No"}, {"vfs objects", "recycle acl_xattr"}});
  EXPECT_EQ(smbRights(with, anna(), object).read.why, "entry 1");
  EXPECT_EQ(smbRights(shareWith({}), anna(), object).read.access, Access::yes);
  EXPECT_EQ(smbRights(with, {"root", {0, {0}}}, object).read.access, Access::yes);
}

TEST(SmbShareRule, OverriddenListCountsWhenKernelIsIgnored) {
  const SmbObject object{.list = noRights("entry 1"), .kind = ListKind::overridden};
  EXPECT_EQ(smbRights(shareWith({{"vfs objects", "acl_xattr"}}), anna(), object).read.access,
            Access::yes);
  const auto deaf =
      shareWith({{"vfs objects", "acl_xattr"}, {"acl_xattr:ignore system acls", "yes"}});
  EXPECT_EQ(smbRights(deaf, anna(), object).read.access, Access::no);
}

TEST(SmbShareRule, UncertainListLeavesDenialUnknown) {
  const SmbObject object{.list = {{}, {Access::no, "entry 1"}}, .kind = ListKind::unsure};
  const DoorRights rights =
      smbRights(shareWith({{"vfs objects", "acl_xattr"}, {"read only", "No"}}), anna(), object);
  EXPECT_EQ(rights.read.access, Access::yes);
  EXPECT_EQ(rights.write.access, Access::unknown);
  const auto deaf =
      shareWith({{"vfs objects", "acl_xattr"}, {"acl_xattr:ignore system acls", "yes"}});
  EXPECT_EQ(smbRights(deaf, anna(), object).write.why, "entry 1");
}

TEST(SmbShareRule, OfSomebodyElsesRightsNothingIsKnown) {
  const SmbObject object{.kernel = noRights("mode")};
  for (const char* parameter : {"force user", "force group", "admin users"}) {
    const DoorRights rights =
        smbRights(shareWith({{parameter, "anna"}, {"read only", "No"}}), bert(), object);
    const bool isAnnasAlone = std::string_view(parameter) == "admin users";
    EXPECT_EQ(rights.read.access, isAnnasAlone ? Access::no : Access::unknown) << parameter;
  }
  EXPECT_EQ(smbRights(shareWith({{"force user", "anna"}}), anna(), object).read.why, "mode");
  EXPECT_EQ(smbRights(shareWith({{"admin users", "anna"}}), anna(), object).read.access,
            Access::unknown);
  EXPECT_EQ(smbRights(shareWith({{"force group", "+root"}}), anna(), object).read.why, "mode");
  EXPECT_EQ(smbRights(shareWith({{"force user", "bert"}}), anna(), object).write.why,
            "share \"x\": read only = yes");
}

TEST(SmbShareRule, UniversalRestrictionsBindForcedUser) {
  const auto share = shareWith({{"force user", "bert"}, {"read only", "No"}});
  EXPECT_EQ(smbRights(share, anna(), {.room = {Access::no, "immutable"}}).write.why, "immutable");
  const SmbObject readOnly{.readOnly = samba::DosReadOnly::yes};
  EXPECT_EQ(smbRights(share, anna(), readOnly).write.access, Access::no);
  EXPECT_EQ(smbRights(share, anna(), readOnly).read.access, Access::unknown);
}

TEST(SmbShareRule, UnknownModulesLeaveRightsUnknown) {
  const auto write = [](const char* modules) {
    return open(shareWith({{"vfs objects", modules}, {"read only", "No"}}));
  };
  EXPECT_EQ(write("recycle:a full_audit acl_xattr").write.access, Access::yes);
  EXPECT_EQ(write("acl_xattr readonly").write.access, Access::unknown);
  EXPECT_EQ(write("acl_xattr readonly").read.access, Access::yes);
  EXPECT_EQ(write("acl_tdb").read.access, Access::unknown);
}

TEST(SmbShareRule, NamesThatMayBeVetoedCannotBeTold) {
  const auto over = [](const char* patterns, const char* inside) {
    return smbRights(shareWith({{"veto files", patterns}}), anna(), {.inside = inside}).read.access;
  };
  EXPECT_EQ(over("/secret*/*.tmp/", "/a/b"), Access::yes);
  EXPECT_EQ(over("/secret*/*.tmp/", ""), Access::yes);
  EXPECT_EQ(over("/secret*/*.tmp/", "/a/SECRETS/b"), Access::unknown);
  EXPECT_EQ(over("/[a]/", "/a"), Access::yes);
  EXPECT_EQ(over("/[a]/", "/[A]"), Access::unknown);
  EXPECT_EQ(over("/a?c/", "/a\xC3\xA9\x63"), Access::unknown);
  EXPECT_EQ(over("/%U/", "/a"), Access::unknown);
}

TEST(SmbShareRule, ModeCountsWithoutListWhenKernelIsIgnored) {
  const SmbObject object{.mode = noRights("mode")};
  EXPECT_EQ(smbRights(shareWith({{"vfs objects", "acl_xattr"}}), anna(), object).read.access,
            Access::yes);
  const auto deaf =
      shareWith({{"vfs objects", "acl_xattr"}, {"acl_xattr:ignore system acls", "yes"}});
  EXPECT_EQ(smbRights(deaf, anna(), object).read.why, "mode");
}

TEST(SmbShareRule, WhatTheKernelRefusesIsRefused) {
  EXPECT_EQ(smbRights(shareWith({}), anna(), {.kernel = noRights("mode")}).read.why, "mode");
}

TEST(ExportTable, HasTheOptionsOfTheUsualFlavour) {
  const auto found = parseExportTable(
      "/srv/a\t10.0.0.0/8(ro,sync,anonuid=65534,sec=sys,rw,all_squash,sec=krb5,ro)\n"
      "broken\n/srv/b\t*(rw)\n");
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].path, "/srv/a");
  EXPECT_EQ(found[0].client, "10.0.0.0/8");
  EXPECT_THAT(found[0].options,
              ElementsAre("ro", "sync", "anonuid=65534", "sec=sys", "rw", "all_squash"));
}

// Of three doors with these rights.
PathAnswer answerOf(const DoorRights& smb, const DoorRights& local, const DoorRights& whole) {
  PathAnswer answer;
  answer.doors[0] = {"smb", "SMB", smb, "x", {}};
  answer.doors[1] = {"local", "local", local, {}, {}};
  answer.doors[2] = {"nfs", "NFS", noRights("not exported over NFS"), {}, {}};
  answer.whole = whole;
  return answer;
}

TEST(AnswerLine, SaysWhatThePathLets) {
  EXPECT_EQ(answerLine(answerOf({}, {}, {}), "anna"), "Yes: anna may read and write");
  const DoorRights reading{{}, {Access::no, "why"}};
  EXPECT_EQ(answerLine(answerOf(reading, reading, reading), "anna"),
            "Read only: anna may read, and not write: why");
  EXPECT_EQ(answerLine(answerOf(noRights("a"), noRights("a"), noRights("a")), "anna"), "No: a");
  EXPECT_EQ(answerLine(answerOf(reading, {}, {}), "anna"),
            "Yes: anna may read and write (not the same at every door)");
  const DoorRights unsure{{}, {Access::unknown, "entry 1"}};
  EXPECT_EQ(answerLine(answerOf(unsure, unsure, unsure), "anna"),
            "Cannot tell about writing: entry 1; anna may read");
}

TEST(AnswerLine, WhatStopsTheUserGoesFirst) {
  PathAnswer answer = answerOf(noRights("x"), noRights("x"), {});
  answer.stop = "stopped at /vol/priv, mode 700, owner root";
  EXPECT_EQ(answerLine(answer, "anna"), "No: stopped at /vol/priv, mode 700, owner root");
  answer.doors[2].rights = {{}, {Access::no, "ro"}};
  EXPECT_EQ(answerLine(answer, "anna"),
            "No: stopped at /vol/priv, mode 700, owner root; but over NFS: read");
}

}  // namespace
}  // namespace paddock::effectiveprivs
