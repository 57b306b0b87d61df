// Paths on several lines of the exports file, against a scripted daemon.
#include "keelhouse/share/nfs_exports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kShared =
    R"({"isShared":true,"path":"/srv/a","name":"a","isIndexingEnabled":true,)"
    R"("nfsExportRecord":{"path":"/srv/a","clients":[{"host":"one","options":["ro"]}]}})";
constexpr const char* kOne = R"({"line":"/srv/a one(ro)\n","clients":[{"host":"one",)"
                             R"("options":["ro"]}]})";
constexpr const char* kTwo =
    R"({"line":"/srv/a  two\u001b(rw) one(ro)\n","clients":[{"host":"two",)"
    R"("options":["rw"]},{"host":"one","options":["ro"]}]})";

class ExportLines : public CommandFixture {
 protected:
  void answerLines(const std::string& exports) {
    daemon_.answerServices("getExports", R"({"status":0,"exports":[)" + exports + "]}");
  }
  void answerShared() { daemon_.answer(readPart("sharePointRecord", kShared)); }
  void answerChanged() { daemon_.answer(writtenPart("sharePointRecord", kShared)); }
  void answerTwoLines() { answerLines(std::string(kOne) + "," + kTwo); }
};

TEST_F(ExportLines, ShowListsEveryLine) {
  answerTwoLines();
  answerShared();
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("line of /etc/exports: /srv/a one(ro)\n"
                              "line of /etc/exports: /srv/a  two\\x1B(rw) one(ro)\n"));
  answerShared();
  EXPECT_EQ(run({"share", "show", "--json", "/srv/a"}), 0);
  EXPECT_THAT(out_, HasSubstr("\"exportLines\": ["));
  answerLines(kOne);
  answerShared();
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 0);
  EXPECT_THAT(out_, Not(HasSubstr("line of")));
}

TEST_F(ExportLines, ChangeThatWouldMergeLinesIsRefused) {
  answerTwoLines();
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"share", "set", "/srv/a", "--no-ftp"},
        std::vector<std::string>{"index", "on", "/srv/a"}}) {
    const std::size_t before = asked();
    answerShared();
    EXPECT_EQ(run(words), 1);
    EXPECT_EQ(asked(), before + 1);
    EXPECT_THAT(error_, HasSubstr("/srv/a stands on 2 lines of the exports file, of which a change "
                                  "of the share makes one:\n  /srv/a one(ro)\n"));
    EXPECT_THAT(error_, HasSubstr("Nothing was changed. Say first what it is to be exported to: "
                                  "keelhouse share set /srv/a --nfs CLIENT...\n"));
  }
}

TEST_F(ExportLines, MoveOfFolderWithSeveralLinesIsRefused) {
  answerTwoLines();
  answerShared();
  daemon_.answer(readPart("sharePointRecord", R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "move", "/srv/a", makeFolder("new")}), 1);
  EXPECT_EQ(asked(), 2U);
  EXPECT_THAT(error_, HasSubstr("the share of /srv/a cannot be moved: /srv/a stands on 2 lines"));
}

TEST_F(ExportLines, UnreadableFileListsPreviouslyReadLines) {
  const std::string list = R"({"readStatus":0,"sharePointList":[{"path":"/srv/a"}]})";
  daemon_.answerServices(
      "getExports", R"({"status":84,"error":"x","message":"cannot read /etc/exports: not UTF-8"})");
  daemon_.answer(list);
  EXPECT_EQ(run({"share", "list"}), 0);
  EXPECT_EQ(error_,
            "keelhouse: note: the exports over NFS are listed as they were last read: cannot read "
            "/etc/exports: not UTF-8 (EILSEQ, 84)\n");
  daemon_.answer(R"({"readStatus":0})");
  EXPECT_EQ(run({"share", "list"}), 0);
  EXPECT_EQ(error_, "") << "there are none";
  answerLines("");
  daemon_.answer(list);
  EXPECT_EQ(run({"share", "list"}), 0);
  EXPECT_EQ(error_, "");
}

TEST_F(ExportLines, UnreadableFileLeavesLinesUnknown) {
  daemon_.answerServices("getExports",
                         R"({"status":5,"error":"x","message":"cannot read /etc/exports: y"})");
  answerShared();
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 0);
  EXPECT_THAT(error_, HasSubstr("note: whether /srv/a is in the exports file is not known: cannot "
                                "read /etc/exports: y (EIO, 5)\n"));
  answerShared();
  daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "remove", "/srv/a"}), 1);
  EXPECT_EQ(
      error_.substr(error_.find("keelhouse: /srv/a is")),
      "keelhouse: /srv/a is no longer shared, but whether /srv/a is in the exports file is not "
      "known: cannot read /etc/exports: y (EIO, 5)\n"
      "When that is mended: keelhouse share remove /srv/a\n");
}

TEST_F(ExportLines, ExportChangeWritesGivenClients) {
  answerTwoLines();
  answerShared();
  daemon_.answer(writtenPart(
      "sharePointRecord",
      R"({"path":"/srv/a","isShared":true,"nfsExportRecord":{"clients":[{"host":"127.0.0.1"}]}})"));
  daemon_.answerServices(
      "getExports",
      {R"({"status":0,"exports":[)" + std::string(kOne) + "," + kTwo + "]}",
       R"({"status":0,"exports":[{"line":"/srv/a 127.0.0.1","clients":[{"host":"127.0.0.1"}]}]})"});
  EXPECT_EQ(run({"share", "set", "/srv/a", "--nfs", "127.0.0.1"}), 0) << error_;
  EXPECT_THAT(error_, HasSubstr("note: /srv/a stands on 2 lines of the exports file, of which"));
  EXPECT_THAT(body(1), AllOf(HasSubstr("127.0.0.1"), Not(HasSubstr("two"))));
  answerLines(kOne);
  answerShared();
  answerChanged();
  EXPECT_EQ(run({"share", "set", "/srv/a", "--no-ftp"}), 0) << error_;
  EXPECT_THAT(error_, Not(HasSubstr("lines of the exports file")));
  EXPECT_THAT(body(3), Not(HasSubstr("nfsExportRecord")));
}

TEST_F(ExportLines, ReportsExportNotWritten) {
  answerShared();
  answerChanged();
  EXPECT_EQ(run({"share", "set", "/srv/a", "--nfs", "127.0.0.1(rw)"}), 1);
  EXPECT_THAT(error_, HasSubstr("keelhouse: /srv/a is shared, but its NFS export was not written\n"
                                "When that is mended: keelhouse share set /srv/a --nfs "
                                "'127.0.0.1(rw)'\n"));
}

TEST_F(ExportLines, ReportsExportNotRemoved) {
  answerLines(kOne);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"share", "set", "/srv/a", "--no-nfs"},
        std::vector<std::string>{"share", "remove", "/srv/a"}}) {
    answerShared();
    const bool removed = words[1] == "remove";
    daemon_.answer(writtenPart("sharePointRecord", removed ? R"({"isShared":false})" : kShared));
    EXPECT_EQ(run(words), 1);
    const std::string done = removed ? "no longer shared" : "shared as asked";
    const std::string command = removed ? "share remove /srv/a" : "share set /srv/a --no-nfs";
    EXPECT_THAT(error_, HasSubstr("keelhouse: /srv/a is " + done +
                                  ", but its NFS export could not be taken out of /etc/exports, "
                                  "which still has: /srv/a one(ro)\n"
                                  "When that is mended: keelhouse " +
                                  command + "\n"));
  }
}

TEST_F(ExportLines, SecondRemovalDeletesLeftoverLines) {
  const std::string left = R"({"status":0,"exports":[)" + std::string(kOne) + "]}";
  daemon_.answerServices("getExports", {left, R"({"status":0,"exports":[]})"});
  daemon_.answer(readPart("sharePointRecord", R"({"isShared":false})"));
  answerChanged();
  daemon_.answer(readPart("sharePointRecord", R"({"path":"/srv/a","name":"a","isShared":true})"));
  daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "remove", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "/srv/a is no longer shared.\n");
  EXPECT_THAT(body(1), HasSubstr(R"("sharePointRecord":{"name":"a","nfsExportRecord":)"
                                 R"({"isDeleted":true},"path":"/srv/a"})"));
  EXPECT_THAT(body(3), HasSubstr(R"("sharePointRecord":{"isShared":false})"));
  const std::size_t before = asked();
  daemon_.answer(readPart("sharePointRecord", R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "remove", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("keelhouse: /srv/a is not shared\n"));
  EXPECT_EQ(asked(), before + 2) << "the list for what is near, and no change";
}

}  // namespace
}  // namespace paddock::keelhouse
