// `privs` and `acl` against a scripted daemon: what they ask, what they print, how they end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kNobody = "2918733C-ACBF-4C23-AD09-B8FC0000FFFE";
constexpr const char* kNogroup = "8872134E-C1BC-44B8-8DF6-B2920000FFFE";
const std::string kHeader = "NO  ACTION  WHO";

std::string ace(const std::string& guid, const std::string& allow, int bitmap, int flags) {
  return R"({"displayName":"x","guid":")" + guid + R"(","allowPermission":")" + allow +
         R"(","bitmap":)" + std::to_string(bitmap) + R"(,"flags":)" + std::to_string(flags) +
         R"(,"isUser":0})";
}
std::string sentAce(const std::string& guid, const std::string& allow, int bitmap, int flags) {
  return R"({"allowPermission":")" + allow + R"(","bitmap":)" + std::to_string(bitmap) +
         R"(,"flags":)" + std::to_string(flags) + R"(,"guid":")" + guid + R"("})";
}

class PrivilegesCommands : public CommandFixture {
 protected:
  static std::string privileges(const std::string& acl) {
    return R"({"path":"/srv/a","fileType":"directory","owner":"root","group":"nogroup",)"
           R"("privs":"750",)" +
           acl + "}";
  }
  static std::string aclOf(const std::string& entries) { return R"("acl":[)" + entries + "]"; }
  void answerRead(const std::string& acl, int status = 0) {
    daemon_.answer(readPart("fileAccessPrivs", privileges(acl), status));
  }
  void answerWritten(const std::string& acl, int status = 0) {
    daemon_.answer(writtenPart("fileAccessPrivs", privileges(acl), status));
  }
  static std::string writeBody(const std::string& privileges) {
    return R"({"configuration":{"fileAccessPrivs":)" + privileges +
           R"(},"optionalArguments":{"path":"/srv/a"}})";
  }
  static std::string aclBody(const std::string& entries) {
    return writeBody(R"({"acl":[)" + entries + "]}");
  }
};

TEST_F(PrivilegesCommands, PrivsShowPrintsOwnerGroupModeAndAcl) {
  answerRead(aclOf(""));
  EXPECT_EQ(run({"privs", "show", "/srv/./a/"}), 0) << error_;
  EXPECT_EQ(out_,
            "path: /srv/a\ntype: directory\nowner: root\ngroup: nogroup\nmode: 750 (rwxr-x---)\n"
            "acl: no entries\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/readSettings");
  EXPECT_EQ(body(0), R"({"optionalArguments":{"path":"/srv/a"}})");
}

TEST_F(PrivilegesCommands, PrivsShowPrintsJsonDocument) {
  daemon_.answer(readPart("fileAccessPrivs", R"({"acl":[],"owner":"","group":"a","privs":"750"})"));
  daemon_.answer(R"({"status":0,"mode":"2750","uid":2147418113,"gid":7})");
  EXPECT_EQ(run({"privs", "show", "/srv/a", "--json"}), 0);
  EXPECT_EQ(target(1), "POST /v1/paddock_files/getMode");
  EXPECT_EQ(body(1), R"({"path":"/srv/a"})");
  EXPECT_EQ(out_,
            "{\n  \"acl\": [],\n  \"group\": \"a\",\n  \"mode\": \"2750\",\n  \"owner\": "
            "\"2147418113\"\n}\n");
}

TEST_F(PrivilegesCommands, PrivsShowPrintsFourDigitsForSpecialBits) {
  answerRead(aclOf(""));
  daemon_.answer(R"({"status":0,"mode":"3750","uid":0,"gid":65534})");
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("mode: 3750 (rwxr-s--T)\n"));
}

TEST_F(PrivilegesCommands, PrivsShowIgnoresFailureOfLaterPart) {
  answerRead(aclOf(""), 100075);
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 0) << error_;
}

TEST_F(PrivilegesCommands, PrivsShowReportsUnreadableParts) {
  daemon_.answer(
      readPart("fileAccessPrivs", R"({"acl":[],"path":"/srv/a","posixErr":"FILE_NOT_FOUND_ERR"})"));
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, StartsWith("keelhouse: the privileges of /srv/a cannot be read "
                                 "(FILE_NOT_FOUND_ERR, 100056)\n"));
  daemon_.answer(readPart("fileAccessPrivs", "{}", 5));
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("Input/output error (EIO, 5)"));
  daemon_.answer(readPart("fileAccessPrivs", "{}"));
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("says nothing of the privileges of /srv/a"));
}

TEST_F(PrivilegesCommands, PrivsShowContinuesWithoutAcl) {
  answerRead(R"("aclErr":"INVALID_ACL_ERR")");
  EXPECT_EQ(run({"privs", "show", "/srv/a"}), 0);
  EXPECT_THAT(out_, HasSubstr("acl: cannot be read, INVALID_ACL_ERR\n"));
}

TEST_F(PrivilegesCommands, PrivsSetSendsOnlyChanges) {
  answerRead(aclOf(""));
  answerWritten(aclOf(""));
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--mode", "750"}), 0) << error_;
  EXPECT_EQ(target(1), "POST /v1/paddock_sharing/writeSettings");
  EXPECT_EQ(body(1), writeBody(R"({"privs":"750"})"));
  EXPECT_THAT(out_, HasSubstr("mode: 750 (rwxr-x---)\n"));
  const std::size_t before = asked();
  answerRead(aclOf(""));
  answerWritten(aclOf(""));
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--owner", "root", "--group", "nogroup"}), 0) << error_;
  EXPECT_EQ(body(before + 1), writeBody(R"({"group":"nogroup","owner":"root"})"));
}

TEST_F(PrivilegesCommands, PrivsSetAcceptsFourthDigit) {
  constexpr const char* kBefore = R"({"status":0,"mode":"0750","uid":0,"gid":65534})";
  constexpr const char* kAfter = R"({"status":0,"mode":"2750","uid":0,"gid":65534})";
  daemon_.answer(kBefore);
  answerRead(aclOf(""));
  answerWritten(aclOf(""));
  daemon_.answer(kAfter);
  daemon_.answer(kAfter);
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--mode", "2750"}), 0) << error_;
  EXPECT_EQ(body(2), writeBody(R"({"privs":"750"})"));
  EXPECT_EQ(target(3), "POST /v1/paddock_files/setModeBits");
  EXPECT_EQ(body(3), R"({"bits":"2","path":"/srv/a"})");
  EXPECT_THAT(out_, HasSubstr("mode: 2750 (rwxr-s---)\n"));
}

TEST_F(PrivilegesCommands, PrivsSetWritesNothingWhenFourthDigitFails) {
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--mode", "2750"}), 1);
  EXPECT_EQ(asked(), 1U);
  daemon_.answer(R"({"status":0,"mode":"0640","uid":0,"gid":0})");
  daemon_.answer(readPart("fileAccessPrivs", R"({"acl":[],"fileType":"regular","privs":"640"})"));
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--mode", "4755"}), 1);
  EXPECT_EQ(error_,
            "keelhouse: set-id and sticky bits are for folders, and /srv/a is none; nothing was "
            "changed\n");
  EXPECT_EQ(asked(), 3U);
}

TEST_F(PrivilegesCommands, PrivsSetAcceptsNumbersForNames) {
  answerRead(aclOf(""));
  answerWritten(aclOf(""));
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--owner", "0", "--group", "65534"}), 0) << error_;
  EXPECT_EQ(body(1), writeBody(R"({"group":"nogroup","owner":"root"})"));
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--owner", "2147418113"}), 1);
  EXPECT_THAT(error_, HasSubstr("the number 2147418113 has no user name"));
}

TEST_F(PrivilegesCommands, PrivsSetLeavesUnknownNamesToDaemon) {
  daemon_.answer(R"({"error":"there is no such plug-in"})", 404);
  answerRead(aclOf(""));
  answerWritten(aclOf(""), 100050);
  EXPECT_EQ(run({"privs", "set", "/srv/a", "--owner", "no-such-zoe"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("cannot be changed (USER_NOT_FOUND_ERR, 100050)\nThere is no "
                                "such user"));
}

TEST_F(PrivilegesCommands, MissingPathSuggestsNearestMatch) {
  const std::string photos = makeFolder("photos");
  const std::string typed = folder_.path("phtos");
  const std::string text = "There is nothing at " + typed + ".\nDid you mean " + photos + "?\n";
  daemon_.answer(readPart("fileAccessPrivs", R"({"posixErr":"FILE_NOT_FOUND_ERR"})"));
  EXPECT_EQ(run({"privs", "show", typed}), 1);
  EXPECT_EQ(error_, "keelhouse: the privileges of " + typed +
                        " cannot be read (FILE_NOT_FOUND_ERR, 100056)\n" + text);
  answerWritten(aclOf(""), 100069);
  EXPECT_EQ(run({"acl", "set", typed, "allow", "user:nobody", "read"}), 1);
  EXPECT_EQ(error_, "keelhouse: the ACL of " + typed +
                        " cannot be set (CANNOT_SET_ACL_FILE_ERR, 100069)\n" + text);
}

TEST_F(PrivilegesCommands, PrivsSetSuggestsNearestNameForUnknownOne) {
  for (const auto& [option, name, text] :
       {std::tuple{"--owner", "nobdy",
                   "there is no user nobdy, neither on this host nor in a "
                   "directory node: did you mean nobody?\n"},
        std::tuple{"--group", "nogruop",
                   "there is no group nogruop, neither on this host nor in a "
                   "directory node: did you mean nogroup?\n"}}) {
    const std::size_t before = asked();
    daemon_.answer(R"({"status":0})");
    EXPECT_EQ(run({"privs", "set", "/srv/a", option, name}), 1);
    EXPECT_EQ(error_, std::string("keelhouse: ") + text);
    for (std::size_t at = before; at < asked(); ++at)
      EXPECT_THAT(target(at), ::testing::Not(HasSubstr("writeSettings")));
  }
}

TEST_F(PrivilegesCommands, PrivsSetReportsUnappliedChanges) {
  for (const auto& [option, value, text] :
       {std::tuple{"--mode", "700",
                   "the mode 700 was not taken over: /srv/a reads back with mode "
                   "\"750\""},
        {"--owner", "nobody",
         "the owner nobody was not taken over: /srv/a reads back with owner "
         "\"root\""},
        {"--group", "root",
         "the group root was not taken over: /srv/a reads back with group "
         "\"nogroup\""}}) {
    answerRead(aclOf(""));
    answerWritten(aclOf(""));
    EXPECT_EQ(run({"privs", "set", "/srv/a", option, value}), 1);
    EXPECT_EQ(out_, "");
    EXPECT_THAT(error_, HasSubstr(text));
  }
}

TEST_F(PrivilegesCommands, PrivsSetRejectsBadWordsBeforeRequest) {
  for (const std::vector<std::string>& options :
       std::vector<std::vector<std::string>>{{},
                                             {"--mode", "8755"},
                                             {"--mode", "02750"},
                                             {"--mode", "75"},
                                             {"--mode", "u+x"},
                                             {"--mode", ""},
                                             {"--owner", ""},
                                             {"--group", ""},
                                             {"--owner", "\xFF"},
                                             {"--group"},
                                             {"--owner", "root", "/srv/b"}}) {
    std::vector<std::string> words = {"privs", "set", "/srv/a"};
    words.insert(words.end(), options.begin(), options.end());
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
    EXPECT_THAT(error_, StartsWith("keelhouse: "));
  }
  EXPECT_EQ(run({"privs", "set"}), 2);
  EXPECT_EQ(run({"privs"}), 2);
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PrivilegesCommands, AclShowPrintsTable) {
  answerRead(aclOf(ace(kNobody, "YES", 2698, 96)));
  EXPECT_EQ(run({"acl", "show", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_,
            "NO  ACTION  WHO          RIGHTS  INHERITANCE  NAME\n"
            "1   allow   user:nobody  read    inherit      x\n");
}

TEST_F(PrivilegesCommands, AclShowPrintsJsonDocument) {
  answerRead(aclOf(R"({"guid":"x"})"));
  EXPECT_EQ(run({"acl", "show", "/srv/a", "--json"}), 0);
  EXPECT_EQ(out_,
            "{\n  \"acl\": [\n    {\n      \"guid\": \"x\",\n      \"kind\": \"unknown\"\n"
            "    }\n  ],\n  \"path\": \"/srv/a\"\n}\n");
}

TEST_F(PrivilegesCommands, AclShowReportsMissingEntries) {
  answerRead(aclOf(""));
  EXPECT_EQ(run({"acl", "show", "/srv/a"}), 0);
  EXPECT_EQ(out_, "/srv/a has no ACL entries.\n");
}

TEST_F(PrivilegesCommands, AclShowReportsUnreadableAcl) {
  answerRead(R"("aclErr":"INVALID_ACL_ERR")");
  EXPECT_EQ(run({"acl", "show", "/srv/a"}), 1);
  EXPECT_THAT(error_,
              StartsWith("keelhouse: the ACL of /srv/a cannot be read (INVALID_ACL_ERR, 100059)\n"
                         "What is stored there is no ACL that can be read."));
  answerRead(R"("x":1)");
  EXPECT_EQ(run({"acl", "show", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("the daemon's reply has none"));
}

TEST_F(PrivilegesCommands, AclShowAddsKernelProjection) {
  const std::string folder = makeFolder("a");
  answerRead(aclOf(ace(kNobody, "YES", 2698, 0)));
  EXPECT_EQ(run({"acl", "show", "--projection", folder}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("NO  WHO          KERNEL  INSIDE  BEYOND THE KERNEL\n"
                              "1   user:nobody  -       -       -\n"));
  answerRead(aclOf(ace(kNobody, "YES", 16, 0)));
  EXPECT_EQ(run({"acl", "show", "--projection", "--json", folder}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("\"not the kernel's to give: delete\""));
}

TEST_F(PrivilegesCommands, AclSetReplacesList) {
  answerWritten(aclOf(ace(kNobody, "YES", 4094, 96) + "," + ace(kNogroup, "NO", 16, 0)));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "allow", "user:nobody", "read,write:inherit",
                 "deny group:nogroup delete"}),
            0)
      << error_;
  EXPECT_EQ(asked(), 1U);
  EXPECT_EQ(
      body(0),
      aclBody(R"({"allowPermission":"YES","bitmap":4094,"flags":96,"isUser":0,"uniqueID":65534},)"
              R"({"allowPermission":"NO","bitmap":16,"flags":0,"groupID":65534,"isUser":1})"));
  EXPECT_THAT(out_, StartsWith(kHeader));
}

TEST_F(PrivilegesCommands, AclSetWithoutEntriesReturnsUsageError) {
  EXPECT_EQ(run({"acl", "set", "/srv/a"}), 2);
  EXPECT_THAT(error_, HasSubstr("keelhouse acl clear PATH"));
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PrivilegesCommands, AclClearReportsRemainingAccess) {
  answerWritten(aclOf(""));
  EXPECT_EQ(run({"acl", "clear", "/srv/a"}), 0) << error_;
  EXPECT_EQ(body(0), aclBody(""));
  EXPECT_EQ(out_,
            "/srv/a has no ACL entries. By its mode 750 its owner root can read and change, the "
            "group nogroup can read and others cannot get in.\n");
  answerWritten(aclOf(""));
  EXPECT_EQ(run({"acl", "clear", "/srv/a", "--json"}), 0) << error_;
  EXPECT_EQ(out_, "{\n  \"acl\": [],\n  \"path\": \"/srv/a\"\n}\n");
}

TEST_F(PrivilegesCommands, AclSetReportsChangeNotAppliedByDaemon) {
  answerWritten(aclOf(""));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "allow", "user:nobody", "read"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_EQ(error_,
            "keelhouse: the ACL of /srv/a was not taken over: of 1 entries 0 read back, although "
            "the daemon reported success\n");
  answerWritten(aclOf(ace(kNobody, "YES", 2, 0)));
  EXPECT_EQ(run({"acl", "set", "/srv/a", "deny", "user:nobody", "list"}), 1);
  EXPECT_THAT(error_, HasSubstr("entry 1 reads back as \"allow user:nobody list\""));
  answerWritten(R"("aclErr":"INVALID_ACL_ERR")");
  EXPECT_EQ(run({"acl", "clear", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("INVALID_ACL_ERR"));
}

TEST_F(PrivilegesCommands, AclSetReportsWriteStatus) {
  answerWritten(aclOf(""), 100069);
  EXPECT_EQ(run({"acl", "clear", "/srv/a"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, StartsWith("keelhouse: the ACL of /srv/a cannot be set "
                                 "(CANNOT_SET_ACL_FILE_ERR, 100069)\n"));
  answerWritten(aclOf(""), -1);
  EXPECT_EQ(run({"acl", "clear", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("(a status without a name, -1)"));
}

TEST_F(PrivilegesCommands, AclSetAcceptsGuidsAndDirectoryNames) {
  constexpr const char* kGuid = "11111111-2222-4333-8444-555555555555";
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeStandard:GeneratedUID":[")" +
                 std::string(kGuid) + R"("]}})");
  answerWritten(aclOf(ace(kGuid, "YES", 2, 0) + "," + ace(kGuid, "YES", 2, 0)));
  daemon_.answer(R"({"status":0})");
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(
      run({"acl", "set", "/srv/a", "allow", "user:no-such-zoe", "list", "allow", kGuid, "list"}), 0)
      << error_;
  EXPECT_EQ(body(1), aclBody(sentAce(kGuid, "YES", 2, 0) + "," + sentAce(kGuid, "YES", 2, 0)));
}

TEST_F(PrivilegesCommands, AclSetRejectsUnknownNameBeforeWriting) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"acl", "set", "/srv/a", "allow", "user:no-such-zoe", "read"}), 1);
  EXPECT_THAT(error_, HasSubstr("there is no user no-such-zoe"));
  EXPECT_EQ(target(1), "GET /v1/health") << "whether all nodes answer";
  EXPECT_THAT(target(2), HasSubstr("listRecords")) << "who is near";
  EXPECT_EQ(asked(), 3U);
  EXPECT_EQ(run({"acl", "set", "/srv/a", "allow", "root", "read"}), 2);
  EXPECT_THAT(error_, HasSubstr("root is both a user and a group"));
  EXPECT_EQ(asked(), 3U);
}

TEST_F(PrivilegesCommands, AclAddAppendsNewEntries) {
  answerRead(aclOf(ace(kNobody, "YES", 2698, 48)));
  answerWritten(aclOf(ace(kNobody, "YES", 2698, 48) + "," + ace(kNogroup, "NO", 2, 0)));
  EXPECT_EQ(run({"acl", "add", "/srv/a", "deny", "group:nogroup", "list"}), 0) << error_;
  EXPECT_EQ(
      body(1),
      aclBody(sentAce(kNobody, "YES", 2698, 48) +
              R"(,{"allowPermission":"NO","bitmap":2,"flags":0,"groupID":65534,"isUser":1})"));
  EXPECT_THAT(out_, HasSubstr("\n2   deny    group:nogroup  list"));
}

TEST_F(PrivilegesCommands, AclAddInsertsAtGivenPosition) {
  const std::string old = ace(kNobody, "YES", 2698, 48);
  const std::string added = ace(kNogroup, "NO", 2, 0);
  for (const std::vector<std::string>& place :
       std::vector<std::vector<std::string>>{{"--first"}, {"--at", "1"}}) {
    answerRead(aclOf(old));
    answerWritten(aclOf(added + "," + old));
    std::vector<std::string> words = {"acl", "add", "/srv/a", "deny group:nogroup list"};
    words.insert(words.end(), place.begin(), place.end());
    EXPECT_EQ(run(words), 0) << error_;
  }
  answerRead(aclOf(old));
  EXPECT_EQ(run({"acl", "add", "--at", "3", "/srv/a", "deny group:nogroup list"}), 1);
  EXPECT_THAT(error_, HasSubstr("there is no entry 3: the ACL has 1\n"));
}

TEST_F(PrivilegesCommands, AclAddAndRemovePreserveUnsendableEntries) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"acl", "add", "/srv/a", "allow", "user:nobody", "read"},
           {"acl", "remove", "/srv/a", "1"}}) {
    answerRead(aclOf(R"({"displayName":"x","guid":"x"})"));
    const std::size_t before = asked();
    EXPECT_EQ(run(words), 1);
    EXPECT_THAT(error_, HasSubstr("entry 1 is of a kind that cannot be written back\n"));
    EXPECT_EQ(asked(), before + 1);
  }
}

TEST_F(PrivilegesCommands, AclAddKeepsUnreadableAcl) {
  answerRead(R"("aclErr":"INVALID_ACL_ERR")");
  EXPECT_EQ(run({"acl", "add", "/srv/a", "allow", "user:nobody", "read"}), 1);
  EXPECT_THAT(error_, HasSubstr("keelhouse acl set PATH ENTRY... replaces it"));
  EXPECT_EQ(asked(), 1U);
}

TEST_F(PrivilegesCommands, AclRemoveDeletesEntriesByNumberAndName) {
  const std::string nobody = ace(kNobody, "YES", 2698, 0);
  const std::string nogroup = ace(kNogroup, "NO", 2, 0);
  answerRead(aclOf(nobody + "," + nogroup));
  answerWritten(aclOf(nogroup));
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "1"}), 0) << error_;
  EXPECT_EQ(body(1), aclBody(sentAce(kNogroup, "NO", 2, 0)));
  answerRead(aclOf(nobody + "," + nogroup + "," + nobody));
  answerWritten(aclOf(nogroup));
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "user:nobody"}), 0) << error_;
  EXPECT_EQ(body(3), aclBody(sentAce(kNogroup, "NO", 2, 0)));
  EXPECT_THAT(out_, HasSubstr("1   deny    group:nogroup  list"));
}

TEST_F(PrivilegesCommands, AclRemoveReportsMissingEntries) {
  answerRead(aclOf(ace(kNobody, "YES", 2, 0)));
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "2"}), 1);
  EXPECT_THAT(error_,
              HasSubstr("there is no entry 2: the ACL has 1\nSee them: keelhouse acl show"));
  answerRead(aclOf(ace(kNobody, "YES", 2, 0)));
  EXPECT_EQ(run({"acl", "remove", "/srv/a", "group:nogroup"}), 1);
  EXPECT_THAT(error_, HasSubstr("no entry is about group:nogroup\n"));
}

TEST_F(PrivilegesCommands, AclRejectsBadWordsBeforeRequest) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"acl"},
           {"acl", "show"},
           {"acl", "show", "/srv/a", "/srv/b"},
           {"acl", "set"},
           {"acl", "set", "/srv/a", "allow", "user:nobody"},
           {"acl", "set", "/srv/a", "allow", "user:nobody", "reads"},
           {"acl", "set", "/srv/a", "allow", "user:nobody", "read:only-inherit"},
           {"acl", "set", "/srv/\xFF"},
           {"acl", "add", "/srv/a"},
           {"acl", "add", "/srv/a", "--at", "0", "allow", "user:nobody", "read"},
           {"acl", "add", "/srv/a", "--at", "x", "allow", "user:nobody", "read"},
           {"acl", "add", "/srv/a", "--at", "1", "--first", "allow", "user:nobody", "read"},
           {"acl", "remove", "/srv/a"},
           {"acl", "remove", "/srv/a", "0"},
           {"acl", "remove", "/srv/a", "user:"}}) {
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
    EXPECT_THAT(error_, StartsWith("keelhouse: "));
    EXPECT_EQ(out_, "");
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(PrivilegesCommands, AclHelpShowsEntrySyntax) {
  EXPECT_EQ(run({"acl", "add", "--help"}), 0);
  EXPECT_THAT(out_, HasSubstr("allow user:anna read,write:inherit"));
}

TEST_F(PrivilegesCommands, MissingDaemonReturnsExitStatusThree) {
  const std::string socket = folder_.path("none.sock");
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"privs", "show", "/srv/a"},
           {"privs", "set", "/srv/a", "--mode", "750"},
           {"acl", "show", "/srv/a"},
           {"acl", "set", "/srv/a", "allow", "user:nobody", "read"},
           {"acl", "set", "/srv/a", "allow", "user:no-such-zoe", "read"}}) {
    auto all = words;
    all.insert(all.begin(), {"--socket", socket});
    EXPECT_EQ(runAsIs(all), 3) << ::testing::PrintToString(words);
  }
}

}  // namespace
}  // namespace paddock::keelhouse
