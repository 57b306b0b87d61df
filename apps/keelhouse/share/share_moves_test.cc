// `share move` and `share rename`: the order of the requests, and what is undone when a step fails.
#include "keelhouse/share/share_moves.h"

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kDone = R"({"status":0})";
constexpr const char* kFailed = R"({"status":5,"error":"Input/output error"})";
constexpr const char* kWrite = "POST /v1/paddock_sharing/writeSettings";
constexpr const char* kPut = "POST /v1/paddock_directory/putRecord";

class ShareMoves : public CommandFixture {
 protected:
  void SetUp() override { to_ = makeFolder("new"); }

  static std::string read(const std::string& sharePoint) {
    return readPart("sharePointRecord", sharePoint);
  }
  static std::string written(const std::string& sharePoint, int status = 0) {
    return writtenPart("sharePointRecord", sharePoint, status);
  }
  static std::string shared(const std::string& path, const std::string& more = {}) {
    return R"({"path":")" + path + R"(","name":"plans","isShared":true,"mountedOnPath":"/")" +
           more + "}";
  }
  static std::string exported() {
    return R"(,"nfsExportRecord":{"path":"/srv/old","clients":[{"host":"h","options":["ro"]}]})";
  }
  // What is read before anything is changed.
  void answerBefore(const std::string& more = {}) {
    daemon_.answer(read(shared("/srv/old", more)));
    daemon_.answer(read(R"({"isShared":false})"));
  }
  void answerPrivileges(const char* owner) {
    daemon_.answer(readPart("fileAccessPrivs", std::string(R"({"owner":")") + owner +
                                                   R"(","group":"g","privs":"750","acl":[]})"));
  }
  void answerRecord(const std::string& path) {
    daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:directory_path":[")" + path + "\"]}}",
                   200, "ETag: \"state\"\r\n");
  }
  // What is read before the record is pointed to the new folder, which is the fifth request.
  void answerUntilPointed(const std::string& more = {}) {
    answerBefore(more);
    answerRecord("/srv/old");
    daemon_.answer(read(shared("/srv/old", more)));
  }
  // The sixth to eighth, and so on: each write first checks whether the share still exists.
  void answerWriting(const std::string& path, int status = 0) {
    daemon_.answer(read(shared(path)));
    daemon_.answer(written(shared(path), status));
  }
  int move() { return run({"share", "move", "/srv/old", to_}); }

  std::string to_;
};

TEST_F(ShareMoves, RecordPathChangesAndOldExportGoesLast) {
  answerUntilPointed(exported());
  daemon_.answer(kDone);
  answerWriting(to_);
  answerWriting(to_);
  daemon_.answer(R"({"status":0,"record":{}})");
  answerPrivileges("anna");
  answerPrivileges("anna");
  ASSERT_EQ(move(), 0) << error_;
  EXPECT_EQ(target(4), kPut);
  EXPECT_THAT(daemon_.requests().at(4).head, HasSubstr("\r\nIf-Match: \"state\"\r\n"));
  EXPECT_THAT(body(4), AllOf(HasSubstr(R"("name":"plans")"),
                             HasSubstr(R"("dsAttrTypeNative:directory_path":")" + to_ + "\"")));
  EXPECT_EQ(target(6), kWrite);
  EXPECT_THAT(body(6), HasSubstr(R"("nfsExportRecord":{"clients":[{"host":"h","options":["ro"]}],)"
                                 R"("path":")" +
                                 to_ + R"("},"path":")" + to_ + "\""));
  EXPECT_EQ(target(8), kWrite);
  EXPECT_THAT(body(8), AllOf(HasSubstr(R"("nfsExportRecord":{"isDeleted":true,"path":"/srv/old"})"),
                             HasSubstr(R"("path":")" + to_ + R"("}},"optionalArguments")"),
                             Not(HasSubstr("nameOver"))));
  EXPECT_EQ(out_, "path: " + to_ + "\nname: plans\nmountedOnPath: /\n");
  EXPECT_EQ(error_, "");
}

TEST_F(ShareMoves, ConcurrentlyRemovedRecordIsNotRecreated) {
  answerBefore();
  daemon_.answer(kDone);
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("cannot be moved: its record plans is gone\nNothing was moved.\n"));
  EXPECT_EQ(asked(), 3U);
}

TEST_F(ShareMoves, ConcurrentMoveOrChangeIsLeftAlone) {
  answerBefore(exported());
  answerRecord("/srv/other");
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("somebody else moved it to /srv/other meanwhile\nNothing was "
                                "moved.\n"));
  answerBefore(exported());
  answerRecord("/srv/old");
  daemon_.answer(read(shared("/srv/old")));
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("somebody else changed it meanwhile\nNothing was moved."));
  answerUntilPointed(exported());
  daemon_.answer(R"({"error":"another state"})", 412);
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("somebody else changed it meanwhile\nNothing was moved."));
  EXPECT_EQ(asked(), 3U + 4U + 5U);
}

TEST_F(ShareMoves, ExportMovesAsFoundAtRecordChange) {
  answerUntilPointed(exported());
  // Asked before it is begun, and when it is pointed.
  daemon_.answerServices("getExports", R"({"status":0,"exports":[]})");
  daemon_.answer(kDone);
  answerWriting(to_);
  daemon_.answer(R"({"status":0,"record":{}})");
  answerPrivileges("anna");
  answerPrivileges("anna");
  ASSERT_EQ(move(), 0) << error_;
  EXPECT_EQ(target(6), kWrite);
  EXPECT_THAT(body(6), Not(HasSubstr("nfsExportRecord")));
  EXPECT_EQ(error_,
            "keelhouse: note: somebody took the NFS export of /srv/old away meanwhile, and " + to_ +
                " is not exported. To export it:\n  keelhouse share set " + to_ +
                " --nfs 'h(ro)'\n");
}

TEST_F(ShareMoves, OldFolderLosesIndexAndBackupMark) {
  answerUntilPointed(R"(,"isIndexingEnabled":true,"isBackstowBackup":true)");
  daemon_.answer(kDone);
  answerWriting(to_);
  daemon_.answer(written(R"({"isShared":false})"));
  daemon_.answer(R"({"status":0,"record":{}})");
  answerPrivileges("anna");
  answerPrivileges("anna");
  ASSERT_EQ(move(), 0) << error_;
  EXPECT_THAT(body(6), HasSubstr(R"("isIndexingEnabled":true)"));
  EXPECT_THAT(body(7), AllOf(HasSubstr(R"({"isShared":false})"), HasSubstr("/srv/old")));
}

TEST_F(ShareMoves, DifferingPrivilegesAreReportedWithCopyCommand) {
  answerUntilPointed();
  daemon_.answer(kDone);
  answerWriting(to_);
  daemon_.answer(R"({"status":0,"record":{}})");
  answerPrivileges("anna");
  answerPrivileges("bert");
  ASSERT_EQ(move(), 0) << error_;
  EXPECT_EQ(error_, "keelhouse: note: the privileges of " + to_ +
                        " are not those of /srv/old. To take them over:\n  keelhouse privs set " +
                        to_ + " --owner anna\n");
}

TEST_F(ShareMoves, ACompleteListIsTakenOverAsSuch) {
  answerUntilPointed();
  daemon_.answer(kDone);
  answerWriting(to_);
  daemon_.answer(R"({"status":0,"record":{}})");
  answerPrivileges("anna");
  answerPrivileges("anna");
  daemon_.answer(R"({"status":0,"present":true,"complete":true})");
  daemon_.answer(R"({"status":0,"present":false,"complete":false})");
  ASSERT_EQ(move(), 0) << error_;
  EXPECT_EQ(error_, "keelhouse: note: the privileges of " + to_ +
                        " are not those of /srv/old. To take them over:\n  keelhouse --json acl "
                        "show /srv/old | keelhouse acl set " +
                        to_ + " --from -\n");
}

TEST_F(ShareMoves, MissingFolderLeavesPrivilegesUnknown) {
  answerUntilPointed();
  daemon_.answer(kDone);
  answerWriting(to_);
  daemon_.answer(R"({"status":0,"record":{}})");
  daemon_.answer(readPart("fileAccessPrivs", R"({"posixErr":"No such file or directory"})"));
  ASSERT_EQ(move(), 0) << error_;
  EXPECT_THAT(error_, HasSubstr("cannot be compared with those of /srv/old"));
}

TEST_F(ShareMoves, AFailureOfTheRecordChangesNothingElse) {
  answerUntilPointed(exported());
  daemon_.answer(kFailed);
  answerRecord("/srv/old");
  daemon_.answer(read(R"({"isShared":false})"));
  answerWriting("/srv/old");
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("\nNothing was moved.\n"));
  ASSERT_EQ(asked(), 9U);
  EXPECT_THAT(body(8), HasSubstr(R"({"isDeleted":true,"path":")" + to_ + "\"}"));
}

TEST_F(ShareMoves, LaterFailureRollsBackRecordAndExport) {
  answerUntilPointed(exported());
  daemon_.answer(kDone);
  answerWriting(to_);
  answerWriting(to_, 100076);
  answerRecord(to_);
  daemon_.answer(kDone);
  answerWriting("/srv/old");
  daemon_.answer(read(R"({"isShared":false})"));
  answerWriting("/srv/old");
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_,
              AllOf(HasSubstr("\nNothing was moved.\n"), Not(HasSubstr("Nothing was changed."))));
  ASSERT_EQ(asked(), 16U);
  EXPECT_THAT(body(10), HasSubstr(R"("dsAttrTypeNative:directory_path":"/srv/old")"));
  EXPECT_THAT(daemon_.requests().at(10).head, HasSubstr("\r\nIf-Match: \"state\"\r\n"));
  EXPECT_THAT(body(12),
              HasSubstr(R"("clients":[{"host":"h","options":["ro"]}],"path":"/srv/old")"));
  EXPECT_THAT(body(15), HasSubstr(R"({"isDeleted":true,"path":")" + to_ + "\"}"));
}

TEST_F(ShareMoves, ConcurrentFurtherMoveStaysAndRemovesBothExports) {
  answerUntilPointed(exported());
  daemon_.answer(kDone);
  daemon_.answer(read(R"({"isShared":false})"));
  answerRecord("/srv/other");
  for (int each = 0; each < 2; ++each) {
    daemon_.answer(read(R"({"isShared":false})"));
    answerWriting("/srv/other");
  }
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, AllOf(HasSubstr("somebody else moved, removed or renamed it meanwhile\n"),
                            HasSubstr("It is at /srv/other now.\n")));
  ASSERT_EQ(asked(), 13U);
  EXPECT_THAT(body(9), HasSubstr(R"({"isDeleted":true,"path":"/srv/old"})"));
  EXPECT_THAT(body(12), HasSubstr(R"({"isDeleted":true,"path":")" + to_ + "\"}"));
}

TEST_F(ShareMoves, WhatCannotBeTakenBackIsSaid) {
  answerUntilPointed();
  daemon_.answer(kDone);
  answerWriting(to_, 100076);
  answerRecord(to_);
  daemon_.answer(kFailed);
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, AllOf(HasSubstr("could not be taken back"), HasSubstr("keelhouse share list"),
                            Not(HasSubstr("Nothing was moved"))));
}

TEST_F(ShareMoves, ConcurrentlyMovedShareReportsMoveNotLetterCase) {
  daemon_.answer(read(shared("/srv/elsewhere")));
  EXPECT_EQ(run({"share", "show", "/srv/old"}), 1);
  EXPECT_THAT(error_, AllOf(HasSubstr("the share of /srv/old was moved to /srv/elsewhere"),
                            Not(HasSubstr("letter case"))));
}

TEST_F(ShareMoves, NothingIsChangedWhereItCannotBe) {
  daemon_.answer(read(R"({"isShared":false})"));
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("/srv/old is not shared"));
  daemon_.answer(read(shared("/srv/old")));
  daemon_.answer(read(R"({"path":")" + to_ + R"(","name":"other","isShared":true})"));
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr(to_ + " is shared already, as other\n"));
  const std::string upper = folder_.path("NEW");
  daemon_.answer(read(shared(upper)));
  daemon_.answer(read(shared(upper)));
  EXPECT_EQ(run({"share", "move", upper, to_}), 1);
  EXPECT_THAT(error_, HasSubstr("in letter case alone"));
  daemon_.answer(read(shared("/srv/old", R"(,"nfsExportRecord":{"line":"/srv/old @x"})")));
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("written by hand"));
  daemon_.answer(read(shared("/srv/old")));
  EXPECT_EQ(run({"share", "move", "/srv/old", "/nonexistent/new"}), 1);
  daemon_.answer(read(shared("/srv/old", R"(,"isAutomounted":true,"automountDSPath":"/LDAP/x")")));
  daemon_.answer(read(R"({"isShared":false})"));
  EXPECT_EQ(move(), 1);
  EXPECT_THAT(error_, HasSubstr("--admin USER\nNothing was changed."));
  for (std::size_t at = 0; at < asked(); ++at) {
    EXPECT_THAT(target(at), ::testing::AnyOf("POST /v1/paddock_sharing/readSettings",
                                             "POST /v1/paddock_sharing/getSharePointList"));
  }
}

class ShareRenaming : public ShareMoves {
 protected:
  void answerShare(const std::string& names) {
    const std::string share = R"({"path":"/srv/a","isShared":true,)" + names + "}";
    daemon_.answer(read(share));
    daemon_.answer(R"({"readStatus":0,"sharePointList":[)" + share +
                   R"(,{"path":"/srv/b","name":"b","nameOverSMB":"Taken"}]})");
    daemon_.answer(read(share));
    daemon_.answer(R"({"readStatus":0,"sharePointList":[]})");
    daemon_.answer(written(R"({"isShared":true})"));
  }
};

TEST_F(ShareRenaming, ChangesTheNamesThatWereTheSame) {
  answerShare(R"("name":"a","nameOverVSP":"a","nameOverSMB":"a","nameOverFTP":"other")");
  ASSERT_EQ(run({"share", "rename", "/srv/a", "plans"}), 0) << error_;
  EXPECT_THAT(body(4), HasSubstr(R"({"name":"plans","nameOverSMB":"plans","nameOverVSP":"plans",)"
                                 R"("path":"/srv/a"})"));
}

TEST_F(ShareRenaming, TakesOtherNamesFromTheOptions) {
  answerShare(R"("name":"a","nameOverVSP":"a","nameOverSMB":"a")");
  ASSERT_EQ(run({"share", "rename", "/srv/a", "plans", "--smb-name", "Pläne"}), 0) << error_;
  EXPECT_THAT(body(4),
              AllOf(HasSubstr(R"("nameOverSMB":"Pläne")"), HasSubstr(R"("nameOverVSP":"plans")")));
}

TEST_F(ShareRenaming, LeavesTheOthersAloneWhenAskedTo) {
  answerShare(R"("name":"a","nameOverVSP":"a","nameOverSMB":"a")");
  ASSERT_EQ(run({"share", "rename", "/srv/a", "plans", "--record-only"}), 0) << error_;
  EXPECT_THAT(body(4), AllOf(HasSubstr(R"("name":"plans")"), Not(HasSubstr("nameOver"))));
}

TEST_F(ShareRenaming, ShortensTheNameOverVsp) {
  const std::string longName(40, 'x');
  answerShare(R"("name":"a","nameOverVSP":"a")");
  ASSERT_EQ(run({"share", "rename", "/srv/a", longName}), 0) << error_;
  EXPECT_THAT(body(4), HasSubstr(R"("nameOverVSP":")" + std::string(31, 'x') + "\""));
}

TEST_F(ShareRenaming, RefusesANameThatAnotherShareHas) {
  answerShare(R"("name":"a","nameOverSMB":"a")");
  EXPECT_EQ(run({"share", "rename", "/srv/a", "TAKEN"}), 1);
  EXPECT_THAT(error_, HasSubstr("\"TAKEN\" is taken by the share /srv/b (nameOverSMB)\n"));
  EXPECT_EQ(asked(), 2U);
}

}  // namespace
}  // namespace paddock::keelhouse
