// What the share commands ask of the services that publish share points, and what they say of it.
#include "keelhouse/share/served_states.h"

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kUnservedSentence =
    "Shared over SMB as Photos, NFS: not served: nfs-server is stopped (systemctl start "
    "nfs-server)";

class ServedShares : public CommandFixture {
 protected:
  static std::string state(const std::string& more) {
    return R"({"status":0,"sharePoints":[{"path":"/srv/a","folder":"there",)" + more + "}]}";
  }
  void answerUnserved() {
    daemon_.answerServices("getServed", state(R"("isShared":true,"isServed":false,"sentence":")" +
                                              std::string(kUnservedSentence) +
                                              R"(","protocols":{"smb":{"state":"served"},)"
                                              R"("nfs":{"state":"not served"}})"));
  }
  // `share add --force /srv/a` with these words; the share point becomes `result`.
  int add(const std::string& result, std::vector<std::string> words = {}) {
    daemon_.answer(readPart("sharePointRecord", R"({"isShared":false})"));
    daemon_.answer(writtenPart("sharePointRecord", result));
    words.insert(words.begin(), {"share", "add", "/srv/a", "--force"});
    return run(words);
  }
  int addPhotos(std::vector<std::string> words = {}) {
    return add(R"({"isShared":true,"path":"/srv/a","nameOverSMB":"a"})", std::move(words));
  }
};

TEST_F(ServedShares, TheSentenceGoesToStandardErrorAlone) {
  answerUnserved();
  EXPECT_EQ(addPhotos(), 0);
  EXPECT_EQ(error_, std::string(kUnservedSentence) + "\n");
  EXPECT_EQ(out_, "path: /srv/a\nnameOverSMB: a\n");
  EXPECT_THAT(daemon_.servicesAsked().back(), HasSubstr(R"({"paths":["/srv/a"]})"));
}

TEST_F(ServedShares, RequiredServingSetsExitStatusWhenUnserved) {
  answerUnserved();
  EXPECT_EQ(addPhotos({"--require-served"}), 5);
  daemon_.answerServices("getServed", state(R"("isShared":true,"isServed":true,"sentence":"S")"));
  EXPECT_EQ(addPhotos({"--require-served"}), 0);
  EXPECT_EQ(error_, "S\n");
}

TEST_F(ServedShares, ADaemonThatCannotSayNeverMeansServed) {
  for (const char* answer : {"", "{}", R"({"status":5,"error":"no directory"})"}) {
    daemon_.answerServices("getServed", answer);
    EXPECT_EQ(addPhotos(), 0);
    EXPECT_THAT(error_, StartsWith("Whether it is served is not known: ")) << answer;
    EXPECT_EQ(addPhotos({"--require-served"}), 5);
  }
}

TEST_F(ServedShares, UnservableShareIsRefusedBeforeWriting) {
  daemon_.answerServices(
      "checkShare", R"({"status":0,"refusals":[{"key":"nameOverSMB","reason":"R","advice":"A"},)"
                    R"({"key":"clients","reason":"S"}]})");
  EXPECT_EQ(addPhotos({"--smb-name", "homes", "--nfs", "h(rw)"}), 1);
  EXPECT_EQ(error_,
            "keelhouse: /srv/a cannot be shared: R\nA\n/srv/a cannot be shared: S\n"
            "Nothing was changed.\n");
  EXPECT_EQ(asked(), 1U);
  const std::string request = daemon_.servicesAsked().front();
  EXPECT_THAT(request, AllOf(HasSubstr(R"("clients":[{"host":"h","options":["rw"]}])"),
                             HasSubstr(R"("mayBeNumbered":false,"nameOverSMB":"homes")"),
                             HasSubstr(R"("path":"/srv/a")")));
}

TEST_F(ServedShares, DefaultNameMayBeNumbered) {
  addPhotos();
  EXPECT_THAT(daemon_.servicesAsked().front(), HasSubstr(R"("mayBeNumbered":true)"));
}

TEST_F(ServedShares, UnrelatedChangeSkipsNameAndClientCheck) {
  daemon_.answer(readPart("sharePointRecord", R"({"isShared":true,"path":"/srv/a"})"));
  daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":true,"path":"/srv/a"})"));
  EXPECT_EQ(run({"share", "set", "/srv/a", "--no-smb"}), 0);
  // How many lines its export has, and what is served afterwards.
  EXPECT_THAT(daemon_.servicesAsked(), ElementsAre(R"({"path":"/srv/a"})", HasSubstr("paths")));
}

TEST_F(ServedShares, ANameThatIsMadeUniqueIsAnnounced) {
  daemon_.answer(readPart("sharePointRecord", R"({"isShared":false})"));
  daemon_.answer(writtenPart(
      "sharePointRecord",
      R"({"isShared":true,"path":"/srv/b/photos","name":"photos-1","nameOverVSP":"photos-1",)"
      R"("nameOverSMB":"photos-1","nameOverFTP":"photos-2"})"));
  daemon_.answer(R"({"status":0,"record":{}})");
  daemon_.answer(R"({"readStatus":0,"sharePointList":[)"
                 R"({"path":"/srv/a","name":"Photos","nameOverFTP":"other"},)"
                 R"({"path":"/srv/c","nameOverFTP":"photos"},)"
                 R"({"path":"/srv/b/photos","name":"photos-1"}]})");
  EXPECT_EQ(run({"share", "add", "/srv/b/photos", "--force"}), 0);
  EXPECT_EQ(error_,
            "keelhouse: note: photos was taken by /srv/a: photos-1 (record, VSP, SMB)\n"
            "keelhouse: note: photos was taken by /srv/c: photos-2 (FTP)\n");
}

TEST_F(ServedShares, ReportsRemovedShareStillServed) {
  daemon_.answerServices("getServed",
                         state(R"("isShared":false,"isServed":true,"sentence":"X has it",)"
                               R"("protocols":{"smb":{"state":"served"}})"));
  const auto remove = [this] {
    daemon_.answer(readPart("sharePointRecord", R"({"isShared":true,"path":"/srv/a"})"));
    daemon_.answer(writtenPart("sharePointRecord", R"({"isShared":false})"));
    return run({"share", "remove", "/srv/a"});
  };
  EXPECT_EQ(remove(), 0);
  EXPECT_EQ(error_, "keelhouse: note: /srv/a is served all the same: X has it\n");
  const auto answerState = [this](const std::string& word) {
    daemon_.answerServices("getServed", state(R"("isShared":false,"isServed":false,"sentence":)"
                                              R"("Shared over X","protocols":{"nfs":{"state":")" +
                                              word + R"("}})"));
  };
  answerState("unknown");
  EXPECT_EQ(remove(), 0);
  EXPECT_EQ(error_, "keelhouse: note: whether /srv/a is still served is not known: Shared over X\n")
      << "the state says it, whatever the sentence begins with";
  answerState("not served");
  EXPECT_EQ(remove(), 0);
  EXPECT_EQ(error_, "");
}

TEST_F(ServedShares, AreListedWithTheirStates) {
  answerUnserved();
  EXPECT_EQ(run({"share", "list", "--check"}), 0);
  EXPECT_EQ(out_,
            "PATH    FOLDER  SMB     NFS         VSP  FTP  DNS-SD\n"
            "/srv/a  there   served  not served  -    -    -\n"
            "/srv/a: " +
                std::string(kUnservedSentence) + "\n");
  EXPECT_EQ(run({"share", "list", "--check", "--require-served"}), 5);
  EXPECT_EQ(run({"share", "list", "--check", "--json"}), 0);
  EXPECT_THAT(out_, AllOf(StartsWith("["), HasSubstr("\"state\": \"not served\"")));
  EXPECT_EQ(run({"share", "list", "--require-served"}), 2);
  EXPECT_EQ(asked(), 0U);
}

TEST_F(ServedShares, ListFailsWhenDaemonCannotReportStates) {
  daemon_.answerServices("getServed", "");
  EXPECT_EQ(run({"share", "list", "--check"}), 1);
  EXPECT_THAT(error_, HasSubstr("what is served is not known: the daemon refused"));
}

TEST_F(ServedShares, AppearInStatusOnRequest) {
  answerUnserved();
  const auto status = [this](std::vector<std::string> words) {
    daemon_.answer(R"({"status":"ok","version":"1"})");
    daemon_.answer(R"({"plugins":[{"name":"paddock_directory","operations":[]}]})");
    daemon_.answer(R"({"status":0,"nodes":[]})");
    return run(std::move(words));
  };
  EXPECT_EQ(status({"status", "--check"}), 1);
  EXPECT_THAT(out_, HasSubstr("share /srv/a"));
  EXPECT_THAT(out_, EndsWith("  " + std::string(kUnservedSentence) + "\n"));
  EXPECT_EQ(status({"status"}), 0);
  EXPECT_THAT(out_, ::testing::Not(HasSubstr("/srv/a")));
  EXPECT_EQ(status({"--json", "status", "--check"}), 1);
  EXPECT_THAT(out_, HasSubstr("\"sharePoints\": ["));
}

}  // namespace
}  // namespace paddock::keelhouse
