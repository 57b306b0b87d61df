// Options over SMB of `share add`, `set` and `show`: the order of writes, what is shown, and what
// is undone.
#include "keelhouse/share/smb_writing.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kRecord = R"({"status":0,"record":{}})";
constexpr const char* kDone = R"({"status":0})";
constexpr const char* kWrite = "POST /v1/paddock_sharing/writeSettings";
constexpr const char* kPut = "POST /v1/paddock_directory/putRecord";
constexpr const char* kGet = "POST /v1/paddock_directory/getRecord";

class SmbWriting : public CommandFixture {
 protected:
  static std::string read(const std::string& sharePoint) {
    return readPart("sharePointRecord", sharePoint);
  }
  static std::string written(const std::string& sharePoint, int status = 0) {
    return writtenPart("sharePointRecord", sharePoint, status);
  }
  // Answers of a folder that is shared as "a".
  void answerShared() { daemon_.answer(read(R"({"path":"/srv/a","name":"a","isShared":true})")); }
  void answerWritten(int status = 0) {
    daemon_.answer(written(R"({"path":"/srv/a","name":"a","isShared":true})", status));
  }
  std::vector<std::string> targets() const {
    std::vector<std::string> targets;
    for (std::size_t at = 0; at < asked(); ++at) targets.push_back(target(at));
    return targets;
  }
};

TEST_F(SmbWriting, NewShareIsPublishedAfterItsOptions) {
  const std::string folder = makeFolder("plans");
  const std::string shared =
      R"({"path":")" + folder + R"(","name":"plans-1","nameOverVSP":"plans-2","isShared":true})";
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(shared));
  daemon_.answer(kRecord);
  daemon_.answer(kDone);
  daemon_.answer(R"({"readStatus":0,"sharePointList":[{"path":"/b","nameOverSMB":"PLANS"}]})");
  daemon_.answer(read(shared));
  daemon_.answer(written(shared));
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_read_only":["1"]}})");
  ASSERT_EQ(run({"share", "add", folder, "--read-only"}), 0) << error_;
  EXPECT_EQ(target(1), kWrite);
  EXPECT_THAT(body(1), AllOf(HasSubstr(R"("name":"plans")"), Not(HasSubstr("nameOverSMB")),
                             Not(HasSubstr("isSharedOverVSP"))));
  EXPECT_EQ(target(3), kPut);
  EXPECT_THAT(body(3), AllOf(HasSubstr(R"("name":"plans-1")"),
                             HasSubstr(R"("dsAttrTypeNative:paddock_smb_read_only":["1"])"),
                             Not(HasSubstr("removeAttributes"))));
  EXPECT_EQ(target(6), kWrite);
  EXPECT_THAT(body(6),
              AllOf(HasSubstr(R"("nameOverSMB":"plans-1")"), HasSubstr(R"("name":"plans-1")"),
                    HasSubstr(R"("nameOverVSP":"plans-2")")));
  EXPECT_THAT(out_, HasSubstr("smb.readOnly: yes\n"));
}

TEST_F(SmbWriting, ANewShareWithoutOptionsIsOneRequest) {
  const std::string folder = makeFolder("plans");
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":true})"));
  ASSERT_EQ(run({"share", "add", folder}), 0) << error_;
  EXPECT_EQ(asked(), 2U);
}

TEST_F(SmbWriting, NewShareWithUnwritableOptionsIsRemoved) {
  const std::string folder = makeFolder("plans");
  const std::string shared = R"({"path":")" + folder + R"(","name":"plans","isShared":true})";
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(shared));
  daemon_.answer(kRecord);
  daemon_.answer(R"({"status":28,"error":"No space left on device"})");
  daemon_.answer(read(shared));
  daemon_.answer(written(R"({"isShared":false})"));
  EXPECT_EQ(run({"share", "add", folder, "--read-only"}), 1);
  EXPECT_THAT(error_, HasSubstr("cannot be written"));
  ASSERT_EQ(asked(), 6U);
  EXPECT_EQ(target(5), kWrite);
  EXPECT_THAT(body(5), HasSubstr(R"("sharePointRecord":{"isShared":false})"));
}

TEST_F(SmbWriting, ConcurrentlySharedFolderIsLeftAlone) {
  const std::string folder = makeFolder("plans");
  for (const std::vector<std::string>& options :
       {std::vector<std::string>{}, std::vector<std::string>{"--read-only"}}) {
    const std::size_t before = asked();
    daemon_.answer(read(R"({"isShared":false})"), 200, "ETag: \"one\"\r\n");
    daemon_.answer(R"({"error":"another state"})", 412);
    daemon_.answer(read(R"({"path":")" + folder + R"(","name":"hers","isShared":true})"));
    std::vector<std::string> line{"share", "add", folder};
    line.insert(line.end(), options.begin(), options.end());
    EXPECT_EQ(run(line), 1);
    EXPECT_THAT(error_, HasSubstr(folder + " is shared already"));
    ASSERT_EQ(asked(), before + 3);
    EXPECT_THAT(daemon_.requests().at(before + 1).head, HasSubstr("\r\nIf-Match: \"one\"\r\n"));
  }
}

TEST_F(SmbWriting, BegunShareChangedByOthersIsNotRemoved) {
  const std::string folder = makeFolder("plans");
  const std::string begun = R"({"path":")" + folder + R"(","name":"plans","isShared":true})";
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(begun));
  daemon_.answer(kRecord);
  daemon_.answer(R"({"status":28,"error":"No space left on device"})");
  daemon_.answer(read(R"({"path":")" + folder + R"(","name":"hers","isShared":true})"));
  EXPECT_EQ(run({"share", "add", folder, "--read-only"}), 1);
  EXPECT_EQ(asked(), 5U);
  EXPECT_THAT(error_, HasSubstr("may be shared in part: see keelhouse share show"));
}

TEST_F(SmbWriting, LeftoverRecordWithoutSettingsIsDeleted) {
  const std::string folder = makeFolder("plans");
  daemon_.answerServices("checkShare", R"({"status":0,"refusals":[],"unfinished":["plans-1"]})");
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":false})", 100076));
  EXPECT_EQ(run({"share", "add", folder}), 1);
  EXPECT_EQ(asked(), 2U) << "what was there before stays, " << error_;

  const std::string nothing = R"({"status":0,"refusals":[]})";
  daemon_.answerServices(
      "checkShare",
      {nothing, nothing, R"({"status":0,"refusals":[],"unfinished":["plans","else"]})"});
  const std::size_t before = asked();
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(R"({"isShared":false})", 100076));
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeStandard:RecordName":["plans"]}})", 200,
                 "ETag: \"begun\"\r\n");
  daemon_.answer(kDone);
  EXPECT_EQ(run({"share", "add", folder}), 1);
  EXPECT_EQ(target(before + 3), "POST /v1/paddock_directory/deleteRecord");
  EXPECT_THAT(body(before + 3), HasSubstr(R"("name":"plans")"));
  EXPECT_THAT(daemon_.requests().at(before + 3).head, HasSubstr("If-Match: \"begun\""));
  EXPECT_THAT(error_, HasSubstr("note: the record plans, which was begun without its settings, is "
                                "deleted again\n"));
}

TEST_F(SmbWriting, RefusedExportAloneReportsFolderAsShared) {
  const std::string folder = makeFolder("plans");
  const std::string stored = R"({"path":")" + folder +
                             R"(","name":"plans-1","nameOverVSP":"plans","isSharedOverVSP":true,)"
                             R"("nameOverSMB":"plans","nameOverFTP":"plans","isShared":true})";
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(stored, 100076), 200, "X-Request-Id: r1\r\n");
  daemon_.answer(read(stored), 200, "X-Request-Id: r2\r\n");
  EXPECT_EQ(run({"share", "add", folder, "--nfs", "10.0.0.1(rw,sync)"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: " + folder +
                                 " cannot be shared (CANNOT_SAVE_SHARE_POINT_ERR, 100076)\n"));
  EXPECT_THAT(error_, HasSubstr(folder +
                                " is shared as asked but for its NFS export, which was not "
                                "written.\nTo finish it, with clients that can stand there "
                                "(exports(5)): keelhouse share set " +
                                folder + " --nfs CLIENT\n"));
  EXPECT_THAT(error_, Not(HasSubstr("10.0.0.1")));
  EXPECT_THAT(error_, Not(HasSubstr("A name may be taken")));
  EXPECT_EQ(target(3), "GET /v1/requests/r1/log");
}

TEST_F(SmbWriting, ChangeWritesOptionsBeforeSharePoint) {
  answerShared();
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_guest":["1"],)"
                 R"("dsAttrTypeNative:paddock_smb_allow_hosts":["10."]}})");
  daemon_.answer(kDone);
  answerWritten();
  daemon_.answer(kRecord);
  ASSERT_EQ(run({"share", "set", "/srv/a", "--no-guest", "--comment", "All plans", "--allow-hosts",
                 "10.0.0.0/8, fd00::/8"}),
            0)
      << error_;
  EXPECT_EQ(targets(), (std::vector<std::string>{"POST /v1/paddock_sharing/readSettings", kGet,
                                                 kPut, kWrite, kGet}));
  EXPECT_THAT(
      body(2),
      AllOf(HasSubstr(R"("dsAttrTypeNative:paddock_smb_comment":["All plans"])"),
            HasSubstr(R"("dsAttrTypeNative:paddock_smb_allow_hosts":["10.0.0.0/8","fd00::/8"])"),
            HasSubstr(R"("removeAttributes":["dsAttrTypeNative:paddock_smb_guest"])")));
}

TEST_F(SmbWriting, OptionsThatOthersChangeMeanwhileStay) {
  answerShared();
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_options":)"
                 R"(["max connections = 5"]}})",
                 200, "ETag: \"one\"\r\n");
  daemon_.answer(R"({"error":"another state"})", 412);
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_options":)"
                 R"(["max connections = 5","veto files = /a/"]}})",
                 200, "ETag: \"two\"\r\n");
  daemon_.answer(kDone);
  answerWritten();
  daemon_.answer(kRecord);
  ASSERT_EQ(run({"share", "set", "/srv/a", "--option", "csc policy = disable"}), 0) << error_;
  EXPECT_THAT(daemon_.requests().at(4).head, HasSubstr("If-Match: \"two\""));
  EXPECT_THAT(
      body(4),
      AllOf(HasSubstr(R"(["max connections = 5","veto files = /a/","csc policy = disable"])"),
            Not(HasSubstr("paddock_smb_guest"))));
}

TEST_F(SmbWriting, AChangeThatFailsTakesTheOptionsBack) {
  answerShared();
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_comment":["Old"]}})");
  daemon_.answer(kDone);
  answerWritten(100076);
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_comment":["New"],)"
                 R"("dsAttrTypeNative:paddock_smb_guest":["1"]}})");
  daemon_.answer(kDone);
  EXPECT_EQ(run({"share", "set", "/srv/a", "--comment", "New"}), 1);
  ASSERT_GE(asked(), 6U);
  EXPECT_THAT(body(2), HasSubstr("New"));
  EXPECT_EQ(target(5), kPut);
  EXPECT_THAT(body(5), AllOf(HasSubstr(R"("dsAttrTypeNative:paddock_smb_comment":["Old"])"),
                             Not(HasSubstr("paddock_smb_guest"))));
}

TEST_F(SmbWriting, OptionChangedByOthersIsNotRolledBack) {
  answerShared();
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_comment":["Old"]}})");
  daemon_.answer(kDone);
  answerWritten(100076);
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_comment":["Hers"]}})");
  EXPECT_EQ(run({"share", "set", "/srv/a", "--comment", "New"}), 1);
  const std::vector<std::string> all = targets();
  EXPECT_EQ(std::count(all.begin(), all.end(), kPut), 1);
}

TEST_F(SmbWriting, UnrelatedChangeKeepsOptions) {
  answerShared();
  answerWritten();
  daemon_.answer(kRecord);
  ASSERT_EQ(run({"share", "set", "/srv/a", "--no-ftp"}), 0) << error_;
  EXPECT_EQ(targets(),
            (std::vector<std::string>{"POST /v1/paddock_sharing/readSettings", kWrite, kGet}));
}

TEST_F(SmbWriting, InvalidOptionIsRefusedBeforeWriting) {
  for (const auto& [words, text] : std::vector<std::pair<std::vector<std::string>, const char*>>{
           {{"--option", "root preexec = /bin/true"}, "\"root preexec\" runs a program"},
           {{"--option", "force user = root"}, "\"force user\" acts for somebody else"},
           {{"--option", "vfs objects ="}, "\"vfs objects\" names modules"},
           {{"--option", "include = /etc/passwd"}, "\"include\" takes other text"},
           {{"--option", "max conections = 5"}, "did you mean max connections?"},
           {{"--option", "max connections"}, "write KEY = VALUE"},
           {{"--option", "max connections = many"}, "takes a number"},
           {{"--option", "veto files = /a/\n[x]\npath = /"}, "line break"},
           {{"--comment", "%U"}, "percent sign"},
           {{"--allow-hosts", "10.0.0.0/99"}, "neither an address"}}) {
    const std::size_t before = asked();
    answerShared();
    daemon_.answer(kRecord);
    std::vector<std::string> line{"share", "set", "/srv/a"};
    line.insert(line.end(), words.begin(), words.end());
    EXPECT_EQ(run(line), 2) << text;
    EXPECT_THAT(error_, AllOf(StartsWith("keelhouse: "), HasSubstr(text)));
    EXPECT_EQ(asked(), before + 2);
  }
}

TEST_F(SmbWriting, OptionIsReplacedAndRemovedByKey) {
  const std::string record = R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_options":)"
                             R"(["max connections = 5","veto files = /a/"]}})";
  answerShared();
  daemon_.answer(record);
  daemon_.answer(kDone);
  answerWritten();
  daemon_.answer(kRecord);
  ASSERT_EQ(
      run({"share", "set", "/srv/a", "--option", "MaxConnections=7", "--no-option", "Veto Files"}),
      0)
      << error_;
  EXPECT_THAT(body(2),
              HasSubstr(R"("dsAttrTypeNative:paddock_smb_options":["max connections = 7"])"));
  answerShared();
  daemon_.answer(record);
  EXPECT_EQ(run({"share", "set", "/srv/a", "--no-option", "veto fils"}), 1);
  EXPECT_THAT(error_, HasSubstr("has no option \"veto fils\": did you mean veto files?"));
}

TEST_F(SmbWriting, OfANewShareTestparmIsAskedOnce) {
  const std::string program = folder_.path("usr/bin/testparm");
  std::filesystem::create_directories(folder_.path("usr/bin"));
  writeWholeFile(program, "#!/bin/sh\necho asked >>" + folder_.path("asked") + "\n");
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  const std::string folder = makeFolder("plans");
  const std::string shared = R"({"path":")" + folder + R"(","name":"plans","isShared":true})";
  daemon_.answer(read(R"({"isShared":false})"));
  daemon_.answer(written(shared));
  daemon_.answer(kRecord);
  daemon_.answer(kDone);
  daemon_.answer(R"({"readStatus":0,"sharePointList":[]})");
  daemon_.answer(read(shared));
  daemon_.answer(written(shared));
  daemon_.answer(kRecord);
  ASSERT_EQ(run({"share", "add", folder, "--option", "max connections = 5"}), 0) << error_;
  EXPECT_THAT(body(3), HasSubstr("max connections = 5"));
  std::ifstream asked(folder_.path("asked"));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(asked), {}), "asked\n");
}

TEST_F(SmbWriting, OptionsAreShown) {
  const std::string record = R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_guest":["1"],)"
                             R"("dsAttrTypeNative:paddock_smb_allow_hosts":["10.","LOCAL"]}})";
  answerShared();
  daemon_.answer(record);
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 0);
  EXPECT_EQ(out_,
            "path: /srv/a\nname: a\nsmb.allowHosts: 10.\nsmb.allowHosts: LOCAL\nsmb.guest: yes\n");
  answerShared();
  daemon_.answer(record);
  EXPECT_EQ(run({"share", "show", "/srv/a", "--json"}), 0);
  EXPECT_THAT(out_, HasSubstr(R"("smb": {)"));
  EXPECT_EQ(error_, "");
}

TEST_F(SmbWriting, UnreadableOptionsAreReportedAsUnknown) {
  answerShared();
  daemon_.answer(R"({"status":13,"error":"Permission denied"})");
  EXPECT_EQ(run({"share", "show", "/srv/a"}), 0);
  EXPECT_EQ(out_, "path: /srv/a\nname: a\n");
  EXPECT_THAT(error_, StartsWith("keelhouse: note: the options over SMB of a cannot be read"));
}

TEST_F(SmbWriting, GuestsThatWriteAreWarnedOf) {
  answerShared();
  daemon_.answer(kRecord);
  daemon_.answer(kDone);
  answerWritten();
  daemon_.answer(R"({"status":0,"record":{"dsAttrTypeNative:paddock_smb_guest":["1"]}})");
  EXPECT_EQ(run({"share", "set", "/srv/a", "--guest"}), 0);
  EXPECT_THAT(error_, StartsWith("keelhouse: warning: guests may write over SMB"));
}

TEST_F(SmbWriting, ListReportsMissingFolder) {
  const std::string folder = makeFolder("there");
  daemon_.answer(R"({"readStatus":0,"sharePointList":[{"path":"/nonexistent/a","name":"a"},)"
                 R"({"path":")" +
                 folder + R"(","name":"b","mountedOnPath":"/"},{"path":")" + folder +
                 R"(","name":"c"},{"path":"/etc/passwd","name":"d","mountedOnPath":"/"},)" +
                 R"({"path":"/nonexistent/e","name":"e","mountedOnPath":"/"},{"name":"f"}]})");
  EXPECT_EQ(run({"share", "list"}), 0);
  EXPECT_THAT(out_, HasSubstr("  NFS  FOLDER\n"));
  EXPECT_THAT(out_, HasSubstr("/nonexistent/a"));
  for (const auto& [name, state] : std::vector<std::pair<std::string, std::string>>{
           {"a", "gone"}, {"b", "-"}, {"c", "-"}, {"d", "no folder"}, {"e", "-"}}) {
    const std::size_t at = out_.find("  " + name + "  ");
    ASSERT_NE(at, std::string::npos) << name;
    const std::string line = out_.substr(at, out_.find('\n', at) - at);
    EXPECT_THAT(line, ::testing::EndsWith("  " + state)) << name;
  }
}

}  // namespace
}  // namespace paddock::keelhouse
