// Every command against a scripted daemon: what it asks, what it prints, how it ends.
#include "keelhouse/keelhouse_command_line.h"

#include <algorithm>

#include "support/keelhouse_commands.h"
#include "wire/json.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class CommandLine : public CommandFixture {
 protected:
  static std::string read(const std::string& sharePoint, int status = 0) {
    return readPart("sharePointRecord", sharePoint, status);
  }
  static std::string written(const std::string& sharePoint, int status = 0) {
    return writtenPart("sharePointRecord", sharePoint, status);
  }
};

TEST_F(CommandLine, RequestPrintsReply) {
  daemon_.answer(R"({"state":"UNKNOWN","n":[1]})");
  EXPECT_EQ(run({"request", "paddock_sharing", "getState"}), 0);
  EXPECT_EQ(out_, "{\n  \"n\": [\n    1\n  ],\n  \"state\": \"UNKNOWN\"\n}\n");
  EXPECT_EQ(error_, "");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/getState");
  EXPECT_EQ(body(0), "{}");
}

TEST_F(CommandLine, RequestPrintsOneLineAsJson) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"--json", "request", "p", "o", R"({"a": {"b": 1}})"}), 0);
  EXPECT_EQ(out_, "{\"status\":0}\n");
  EXPECT_EQ(body(0), R"({"a": {"b": 1}})");
}

TEST_F(CommandLine, RequestReportsStatusOnlyByExitStatus) {
  for (const char* reply : {R"({"status":-1})", R"({"readStatus":2})", R"({"writeStatus":100076})",
                            R"({"error":"x"})"}) {
    daemon_.answer(reply);
    EXPECT_EQ(run({"request", "p", "o"}), 1) << reply;
    EXPECT_NE(out_, "");
    EXPECT_EQ(error_, "");
  }
}

TEST_F(CommandLine, RequestRejectsNonDictionary) {
  for (const char* json : {"", "[1]", "{x", "{\"a\":1.5}", "5"}) {
    EXPECT_EQ(run({"request", "p", "o", json}), 2) << json;
    EXPECT_THAT(error_, StartsWith("keelhouse: the request is "));
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(CommandLine, RequestEscapesUrlParts) {
  daemon_.answer("{}");
  EXPECT_EQ(run({"request", "a/b c", "../d"}), 0);
  EXPECT_EQ(target(0), "POST /v1/a%2Fb%20c/..%2Fd");
}

TEST_F(CommandLine, HttpErrorIsReportedWithItsText) {
  daemon_.answer(R"({"error":"no plug-in\u001b[31m p"})", 404);
  EXPECT_EQ(run({"request", "p", "o"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_EQ(error_,
            "keelhouse: the daemon refused the request (HTTP 404): no plug-in\\x1B[31m p\n");
  daemon_.answer("<html>", 503);
  EXPECT_EQ(run({"command", "vsp:command", "=", "x"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("HTTP 503"));
}

TEST_F(CommandLine, InvalidReplyFails) {
  for (const char* reply : {"", "[]", "{"}) {
    daemon_.answer(reply);
    EXPECT_EQ(run({"request", "p", "o"}), 1) << reply;
    EXPECT_THAT(error_, HasSubstr("the daemon's reply"));
  }
  daemon_.hangUp();
  EXPECT_EQ(run({"request", "p", "o"}), 1);
  EXPECT_EQ(error_, "keelhouse: the daemon closed the connection unanswered\n");
}

TEST_F(CommandLine, CommandPrintsStatusLeafFirst) {
  daemon_.answer(R"({"count":3,"status":0})");
  EXPECT_EQ(run({"command", "vsp:command", "=", "syncSharePoints"}), 0);
  EXPECT_EQ(out_, "vsp:status = 0\nvsp:count = 3\n");
  EXPECT_EQ(error_, "");
  EXPECT_EQ(target(0), "POST /v1/paddock_vsp/syncSharePoints");
  EXPECT_EQ(body(0), "{}");
}

TEST_F(CommandLine, CommandAcceptsWordsResemblingOptionsAndCommands) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"command", "x:command", "=", "share", "x:a", "=", "-1", "x:b", "=", "--json",
                 "x:c", "=", "--help", "x:d", "=", "list"}),
            0);
  EXPECT_EQ(body(0), R"({"a":-1,"b":"--json","c":"--help","d":"list"})");
}

TEST_F(CommandLine, CommandWritesStatusOnlyToStandardOutput) {
  daemon_.answer(R"({"status":5})");
  EXPECT_EQ(run({"command", "vsp:command", "=", "syncSharePoints"}), 1);
  EXPECT_EQ(out_, "vsp:status = 5\n");
  EXPECT_EQ(error_, "");
}

TEST_F(CommandLine, CommandReportsUsageErrorsOnStandardError) {
  EXPECT_EQ(run({"command"}), 2);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, StartsWith("keelhouse: "));
  EXPECT_EQ(run({"command", "vsp:a", "=", "b"}), 2);
  EXPECT_EQ(asked(), 0U);
}

TEST_F(CommandLine, ListPrintsTable) {
  daemon_.answer(
      R"({"sharePointList":[{"path":"/srv/a","name":"a","nameOverSMB":"a","mountedOnPath":"/"}],)"
      R"("readStatus":0})");
  EXPECT_EQ(run({"share", "list"}), 0);
  EXPECT_EQ(out_, "PATH    NAME  VSP  SMB  FTP  NFS\n/srv/a  a     -    a    -    -\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/getSharePointList");
}

TEST_F(CommandLine, EmptyListIsReported) {
  daemon_.answer(R"({"readStatus":0})");
  EXPECT_EQ(run({"share", "list"}), 0);
  EXPECT_EQ(out_, "No folder is shared.\n");
  daemon_.answer(R"({"readStatus":0})");
  EXPECT_EQ(run({"share", "list", "--json"}), 0);
  EXPECT_EQ(out_, "[]\n");
}

TEST_F(CommandLine, ListReportsStatus) {
  daemon_.answer(R"({"readStatus":100075,"error":"CANNOT_RETRIEVE_SHARE_POINTS_ERR"})");
  EXPECT_EQ(run({"share", "list"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("(CANNOT_RETRIEVE_SHARE_POINTS_ERR, 100075)\n"));
}

TEST_F(CommandLine, ShowPrintsProperties) {
  daemon_.answer(read(R"({"path":"/srv/a","name":"a","isShared":true})"));
  daemon_.answer(R"({"status":0,"record":{}})");
  EXPECT_EQ(run({"share", "show", "/srv/./a/"}), 0);
  EXPECT_EQ(out_, "path: /srv/a\nname: a\n");
  EXPECT_EQ(error_, "");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/readSettings");
  EXPECT_EQ(body(0), R"({"optionalArguments":{"path":"/srv/a"}})");
}

TEST_F(CommandLine, ShowPrintsRawDictionaryAsJson) {
  daemon_.answer(read(R"({"path":"/srv/a","isShared":true})"));
  EXPECT_EQ(run({"share", "show", "/srv/a", "--json"}), 0);
  EXPECT_EQ(out_, "{\n  \"isShared\": true,\n  \"path\": \"/srv/a\"\n}\n");
}

TEST_F(CommandLine, ShowReportsUnsharedFolder) {
  daemon_.answer(read(R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: /srv/a is not shared\n"));
}

TEST_F(CommandLine, ShowReportsFailedRead) {
  daemon_.answer(read("{}", 2));
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("No such file or directory (ENOENT, 2)"));
}

TEST_F(CommandLine, AddSharesFolderUnderItsName) {
  const std::string folder = makeFolder("my files");
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"path":"/x","name":"my files","isShared":true})"));
  EXPECT_EQ(run({"share", "add", folder}), 0) << error_;
  EXPECT_EQ(out_, "path: /x\nname: my files\n");
  EXPECT_EQ(target(1), "POST /v1/paddock_sharing/writeSettings");
  EXPECT_EQ(body(1), R"({"configuration":{"sharePointRecord":{"isSharedOverVSP":true,)"
                     R"("name":"my files","nameOverFTP":"my files","nameOverSMB":"my files",)"
                     R"("nameOverVSP":"my files","path":")" +
                         folder + R"("}},"optionalArguments":{"path":")" + folder + R"("}})");
}

TEST_F(CommandLine, AddAcceptsEveryOption) {
  const std::string folder = makeFolder("a");
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":true,"nfsExportRecord":{"clients":[)"
                         R"({"host":"10.0.0.0/8","options":["sync","rw"]},)"
                         R"({"host":"*","options":["ro"]}]}})"));
  EXPECT_EQ(run({"share", "add", folder, "--name", "n", "--vsp-name", "v", "--no-vsp", "--smb-name",
                 "s", "--no-ftp", "--nfs", "10.0.0.0/8(rw,sync)", "--nfs", "*(ro)"}),
            0)
      << error_;
  EXPECT_THAT(body(1), HasSubstr(R"("sharePointRecord":{"isSharedOverVSP":false,"name":"n",)"
                                 R"("nameOverSMB":"s","nameOverVSP":"v","nfsExportRecord":)"
                                 R"({"clients":[{"host":"10.0.0.0/8","options":["rw","sync"]},)"
                                 R"({"host":"*","options":["ro"]}]},"path":)"));
}

TEST_F(CommandLine, AddRefusesNonFolderUnlessForced) {
  writeWholeFile(folder_.path("file"), "x");
  EXPECT_EQ(run({"share", "add", folder_.path("file")}), 1);
  EXPECT_THAT(error_, HasSubstr("file is not a folder\n"));
  EXPECT_EQ(run({"share", "add", folder_.path("none")}), 1);
  EXPECT_THAT(error_, HasSubstr("No such file or directory\n"));
  EXPECT_EQ(asked(), 0U);
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":true})"));
  EXPECT_EQ(run({"share", "add", "--force", folder_.path("none")}), 0) << error_;
}

TEST_F(CommandLine, AddRefusesSharedFolder) {
  daemon_.answer(read(R"({"isShared":true})"));
  EXPECT_EQ(run({"share", "add", makeFolder("a")}), 1);
  EXPECT_THAT(error_, HasSubstr("is shared already\nChange it with: keelhouse share set"));
  EXPECT_EQ(asked(), 1U);
}

TEST_F(CommandLine, AddReportsWriteStatus) {
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":false})", 100076));
  EXPECT_EQ(run({"share", "add", makeFolder("a")}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, HasSubstr("cannot be shared (CANNOT_SAVE_SHARE_POINT_ERR, 100076)\n"));
}

TEST_F(CommandLine, RefusedChangeReportsWhenNothingChanged) {
  const auto refuse = [this](const std::string& before, const std::string& after) {
    daemon_.answer(read(before), 200, "ETag: \"one\"\r\n");
    daemon_.answer(R"({"readStatus":0,"sharePointList":[]})");
    daemon_.answer(written(after, 100076));
    daemon_.answer(read(after));
    return run({"share", "set", folder_.path(), "--name", "b"});
  };
  const std::string stored = R"({"path":")" + folder_.path() + R"(","name":"a","isShared":true})";
  EXPECT_EQ(refuse(stored, stored), 1);
  EXPECT_THAT(error_, HasSubstr("(CANNOT_SAVE_SHARE_POINT_ERR, 100076)\nNothing was changed.\n"));
  EXPECT_EQ(refuse(stored, R"({"name":"b","isShared":true})"), 1);
  EXPECT_THAT(error_, ::testing::Not(HasSubstr("Nothing was changed")));
}

TEST_F(CommandLine, PartlyRefusedChangeReportsAndFinishesCompletedPart) {
  const std::string path = folder_.path();
  const std::string before = R"({"path":")" + path + R"(","name":"a","isShared":true})";
  const std::string after =
      R"({"path":")" + path +
      R"(","name":"a","isShared":true,"isIndexingEnabled":true,"nfsExportRecord":{"path":")" +
      path + R"(","clients":[{"host":"10.1.0.0/16","options":["ro"]}]}})";
  daemon_.answer(read(before), 200, "ETag: \"one\"\r\n");
  daemon_.answer(R"({"readStatus":0,"sharePointList":[]})");
  daemon_.answer(written(after, 100076));
  daemon_.answer(read(after));
  daemon_.answer(read(after));
  EXPECT_EQ(run({"share", "set", path, "--name", "b", "--index", "--nfs", "10.1.0.0/16(ro)"}), 1);
  EXPECT_THAT(error_, HasSubstr("(CANNOT_SAVE_SHARE_POINT_ERR, 100076)\n"
                                "Of what was asked this is done nevertheless: --index --nfs "
                                "'10.1.0.0/16(ro)'\nThis is not: --name b\n"
                                "When that is mended: keelhouse share set " +
                                path + " --name b\n"));
}

TEST_F(CommandLine, TakenShareNameIsRefusedBeforeWriting) {
  daemon_.answer(read(R"({"path":"/srv/a","name":"a","isShared":true})"));
  daemon_.answer(R"({"readStatus":0,"sharePointList":[{"path":"/srv/b","name":"Taken"}]})");
  EXPECT_EQ(run({"share", "set", "/srv/a", "--name", "TAKEN", "--no-nfs"}), 1);
  EXPECT_EQ(error_,
            "keelhouse: \"TAKEN\" is taken by the share /srv/b (name)\nNothing was changed.\n");
  EXPECT_EQ(asked(), 2U);
}

TEST_F(CommandLine, AddReportsShareMissingFromReadBack) {
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "add", makeFolder("a")}), 1);
  EXPECT_THAT(error_, HasSubstr("does not read back as shared"));
}

TEST_F(CommandLine, AddRejectsBadOptionsBeforeRequest) {
  const std::string folder = makeFolder("a");
  const std::vector<std::vector<std::string>> cases = {
      {},
      {folder, folder},
      {folder, "--smb", "--no-smb"},
      {folder, "--smb-name", "x", "--no-smb"},
      {folder, "--vsp-name", std::string(32, 'x')},
      {folder, "--name", ""},
      {folder, "--nfs", "a b"},
      {folder, "--nfs"},
      {folder, "--no-nfs"},
      {folder, "--unknown"},
      {"/srv/\xFF"},
      {""},
  };
  for (auto words : cases) {
    words.insert(words.begin(), {"share", "add"});
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
    EXPECT_THAT(error_, StartsWith("keelhouse: "));
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(CommandLine, SetSendsOnlyChanges) {
  daemon_.answer(read(R"({"path":"/srv/a","nameOverFTP":"f","isShared":true})"));
  daemon_.answer(written(R"({"path":"/srv/a","isShared":true})"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--no-smb", "--ftp", "--no-nfs"}), 0) << error_;
  EXPECT_EQ(out_, "path: /srv/a\n");
  EXPECT_EQ(body(1), R"({"configuration":{"sharePointRecord":{"nameOverFTP":"f","nameOverSMB":"",)"
                     R"("nfsExportRecord":{"isDeleted":true},"path":"/srv/a"}},)"
                     R"("optionalArguments":{"path":"/srv/a"}})");
}

TEST_F(CommandLine, SetRefusesUnsharedFolder) {
  daemon_.answer(read(R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--name", "x"}), 1);
  EXPECT_THAT(error_, HasSubstr("/srv/a is not shared\nShare it with: keelhouse share add"));
  EXPECT_EQ(run({"share", "set", "/srv/a"}), 2);
  EXPECT_EQ(run({"share", "set", "/srv/a", "--nfs", "*", "--no-nfs"}), 2);
}

TEST_F(CommandLine, RemoveEndsSharing) {
  daemon_.answer(read(R"({"isShared":true})"));
  daemon_.answer(written(R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "remove", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "/srv/a is no longer shared.\n");
  EXPECT_EQ(body(1), R"({"configuration":{"sharePointRecord":{"isShared":false}},)"
                     R"("optionalArguments":{"path":"/srv/a"}})");
}

TEST_F(CommandLine, RemoveReportsUnsharedAndStillSharedFolders) {
  daemon_.answer(read(R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "remove", "/srv/a"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: /srv/a is not shared\n"));
  daemon_.answer(read(R"({"isShared":true})"));
  daemon_.answer(written(R"({"isShared":true})"));
  EXPECT_EQ(run({"share", "remove", "/srv/a"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: /srv/a is still shared\n"));
}

TEST_F(CommandLine, RecordListPrintsNames) {
  daemon_.answer(R"({"status":0,"records":[{"dsAttrTypeStandard:RecordName":["joe","j"]},)"
                 R"({"dsAttrTypeStandard:RecordName":["a\nb"]},{}]})");
  EXPECT_EQ(run({"record", "list", "users"}), 0) << error_;
  EXPECT_EQ(out_, "joe\na\\x0Ab\n-\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_directory/listRecords");
  EXPECT_EQ(body(0), R"({"type":"dsRecTypeStandard:Users"})");
}

TEST_F(CommandLine, RecordListPrintsRawArrayAsJson) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"--json", "record", "list", "dsRecTypeNative:x", "--node", "/System"}), 0);
  EXPECT_EQ(out_, "[]\n");
  EXPECT_EQ(body(0), R"({"node":"/System","type":"dsRecTypeNative:x"})");
}

TEST_F(CommandLine, RecordShowPrintsEveryValue) {
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeStandard:RecordName":["joe","j"],"a:b":[]}})");
  EXPECT_EQ(run({"record", "show", "users", "joe"}), 0) << error_;
  EXPECT_EQ(out_, "dsAttrTypeStandard:RecordName: joe\ndsAttrTypeStandard:RecordName: j\n");
  EXPECT_EQ(body(0), R"({"name":"joe","type":"dsRecTypeStandard:Users"})");
}

TEST_F(CommandLine, RecordShowReportsMissingRecord) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"record", "show", "users", "joe"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: there is no joe of type dsRecTypeStandard:Users\n"));
}

TEST_F(CommandLine, RecordPutSendsAttributes) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"record", "put", "groups", "g", "GroupMembership=a", "GroupMembership=b",
                 "dsAttrTypeNative:x=y=z"}),
            0)
      << error_;
  EXPECT_EQ(out_, "");
  EXPECT_EQ(target(0), "POST /v1/paddock_directory/putRecord");
  EXPECT_EQ(body(0), R"({"attributes":{"dsAttrTypeNative:x":["y=z"],)"
                     R"("dsAttrTypeStandard:GroupMembership":["a","b"]},"name":"g",)"
                     R"("type":"dsRecTypeStandard:Groups"})");
}

TEST_F(CommandLine, RemovingAttributesRequiresExistingRecord) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"record", "put", "groups", "tpyo", "--remove", "Comment"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: there is no tpyo of type dsRecTypeStandard:Groups\n"));
  EXPECT_EQ(target(0), "POST /v1/paddock_directory/getRecord");
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeStandard:RecordName":["g"]}})");
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"record", "put", "groups", "g", "--remove", "Comment"}), 0) << error_;
  EXPECT_EQ(target(2), "POST /v1/paddock_directory/putRecord");
  EXPECT_EQ(asked(), 3U);
}

TEST_F(CommandLine, RecordPutRemovesAttributes) {
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"record", "put", "groups", "g", "--remove", "Comment", "RealName=G", "--remove",
                 "dsAttrTypeNative:x"}),
            0)
      << error_;
  EXPECT_EQ(body(0), R"({"attributes":{"dsAttrTypeStandard:RealName":["G"]},"name":"g",)"
                     R"("removeAttributes":["dsAttrTypeStandard:Comment","dsAttrTypeNative:x"],)"
                     R"("type":"dsRecTypeStandard:Groups"})");
  EXPECT_EQ(run({"record", "put", "groups", "g", "RealName=G", "--remove", "RealName"}), 2);
  EXPECT_THAT(error_, HasSubstr("RealName cannot be set and removed at once"));
}

TEST_F(CommandLine, StatusIsExplainedByDaemonMessage) {
  daemon_.answer(
      R"({"status":22,"error":"Invalid argument","message":"attributes is no\tdictionary"})");
  EXPECT_EQ(run({"record", "put", "groups", "g"}), 1);
  EXPECT_THAT(
      error_,
      StartsWith("keelhouse: g cannot be written: attributes is no\\x09dictionary (EINVAL, 22)\n"));
}

TEST_F(CommandLine, FailureAsJsonIncludesRequestLog) {
  daemon_.answer(R"({"status":13})", 200, "X-Request-Id: r1\r\n");
  daemon_.answer(
      R"({"request":"r1","lines":[{"time":"2026-01-01T00:00:00.000Z","level":"error",)"
      R"("text":"why"},{"time":"2026-01-01T00:00:00.001Z","level":"info","text":"b"}]})");
  EXPECT_EQ(run({"--json", "record", "delete", "mounts", "m"}), 1);
  EXPECT_EQ(target(1), "GET /v1/requests/r1/log");
  EXPECT_THAT(error_, HasSubstr("(EACCES, 13)\n  error: why\n"));
  std::string fault;
  const auto printed = wire::parseJson(out_, fault);
  ASSERT_TRUE(printed) << out_;
  const Dictionary& object = *printed->dictionary();
  EXPECT_THAT(*object.string("error"), StartsWith("m cannot be deleted: Permission denied"));
  EXPECT_EQ(object.integer("exitStatus"), 1);
  ASSERT_EQ(object.array("log")->size(), 2U);
  EXPECT_EQ(
      object.array("log")->back(),
      Value(Dictionary{{"time", "2026-01-01T00:00:00.001Z"}, {"level", "info"}, {"text", "b"}}));
}

TEST_F(CommandLine, RecordDeleteReportsStatus) {
  daemon_.answer(R"({"status":13})");
  EXPECT_EQ(run({"record", "delete", "mounts", "m"}), 1);
  EXPECT_THAT(error_, HasSubstr("m cannot be deleted: Permission denied (EACCES, 13)\n"));
  EXPECT_EQ(target(0), "POST /v1/paddock_directory/deleteRecord");
}

TEST_F(CommandLine, RecordRejectsBadWordsBeforeRequest) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"record", "list"},
           {"record", "list", "printers"},
           {"record", "show", "users", ""},
           {"record", "put", "users", "joe", "x"},
           {"record", "show", "users", "\xFF"},
           {"record", "password"},
           {"record", "password", "joe", "--password-fd", "-2"},
           {"record", "list", "users", "--admin-password-fd", "3"}}) {
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(CommandLine, RefusedUserIsAdvisedOfRequiredGroup) {
  const auto refuse = [this](const std::vector<std::string>& words) {
    daemon_.answer(
        R"({"error":"user 7 is not allowed to do this: you need to be in the group )"
        R"(paddock (changes) or paddock-view (looking): usermod -aG paddock-view erik"})",
        403);
    EXPECT_EQ(run(words), 1);
    return error_;
  };
  EXPECT_THAT(refuse({"share", "add", folder_.path()}), HasSubstr(": usermod -aG paddock erik\n"));
  EXPECT_THAT(refuse({"acl", "clear", "/srv/a"}), HasSubstr(": usermod -aG paddock erik\n"));
  EXPECT_THAT(refuse({"share", "list"}), HasSubstr(": usermod -aG paddock-view erik\n"));
}

TEST_F(CommandLine, MissingDaemonReturnsExitStatusThree) {
  const std::string socket = folder_.path("none.sock");
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"status"},
                                             {"share", "list"},
                                             {"record", "list", "users"},
                                             {"nodes"},
                                             {"request", "p", "o"},
                                             {"command", "vsp:command=x"}}) {
    auto all = words;
    all.insert(all.begin(), {"--socket", socket});
    EXPECT_EQ(runAsIs(all), 3) << ::testing::PrintToString(words);
    EXPECT_EQ(out_, "");
    EXPECT_THAT(error_, StartsWith("keelhouse: cannot reach the daemon at " + socket +
                                   ": No such file or directory; is paddockd running?"));
  }
}

TEST_F(CommandLine, SocketWithoutListenerReturnsExitStatusThree) {
  std::string socket;
  {
    const TestFolder other;
    const testing::ScriptedDaemon ended(other.path());
    socket = folder_.path("left.sock");
    std::filesystem::create_hard_link(ended.socketPath(), socket);
  }
  EXPECT_EQ(runAsIs({"--socket", socket, "share", "list"}), 3);
  EXPECT_THAT(error_, HasSubstr("Connection refused"));
}

TEST_F(CommandLine, OverlongSocketPathIsReported) {
  EXPECT_EQ(runAsIs({"--socket", "/" + std::string(120, 'x'), "share", "list"}), 3);
  EXPECT_THAT(error_, HasSubstr("File name too long; a socket's path can have 107 bytes"));
}

TEST_F(CommandLine, RootOptionDeterminesSocket) {
  daemon_.answer(R"({"readStatus":0})");
  EXPECT_EQ(runAsIs({"--root", folder_.path(), "share", "list"}), 0) << error_;
  EXPECT_EQ(runAsIs({"--root", folder_.path(), "--socket", daemon_.socketPath(), "share", "list"}),
            2);
}

TEST_F(CommandLine, EnvironmentProxiesAreIgnored) {
  ::setenv("http_proxy", "http://127.0.0.1:1", 1);
  ::setenv("ALL_PROXY", "http://127.0.0.1:1", 1);
  daemon_.answer(R"({"readStatus":0})");
  EXPECT_EQ(run({"share", "list"}), 0) << error_;
  ::unsetenv("http_proxy");
  ::unsetenv("ALL_PROXY");
}

TEST_F(CommandLine, UsageErrorsReturnExitStatusTwo) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {}, {"frobnicate"}, {"share"}, {"share", "frob"}, {"--frob"}, {"share", "list", "x"}}) {
    EXPECT_EQ(runAsIs(words), 2) << ::testing::PrintToString(words);
    EXPECT_EQ(out_, "");
    EXPECT_THAT(error_, StartsWith("keelhouse: "));
  }
}

TEST_F(CommandLine, HelpAndVersionPrintToStandardOutput) {
  EXPECT_EQ(runAsIs({"--help"}), 0);
  EXPECT_THAT(out_, HasSubstr("share"));
  EXPECT_EQ(runAsIs({"--version"}), 0);
  EXPECT_THAT(out_, StartsWith("keelhouse "));
  EXPECT_EQ(runAsIs({"share", "add", "--help"}), 0);
  EXPECT_THAT(out_, HasSubstr("--no-smb"));
}

TEST_F(CommandLine, TenThousandSharePointsAreListed) {
  constexpr int kCount = 10000;
  std::string reply = R"({"readStatus":0,"sharePointList":[)";
  for (int at = 0; at < kCount; ++at) {
    reply += (at == 0 ? "" : ",") + (R"({"path":"/srv/)" + std::to_string(at)) +
             R"(","name":"n","isSharedOverVSP":true,"nameOverVSP":"v"})";
  }
  daemon_.answer(reply + "]}");
  EXPECT_EQ(run({"share", "list"}), 0) << error_;
  EXPECT_EQ(std::count(out_.begin(), out_.end(), '\n'), kCount + 1);
}

}  // namespace
}  // namespace paddock::keelhouse
