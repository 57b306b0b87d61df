// What the daemon logged for the requests of a command, below the output of the command.
#include "keelhouse/core/keelhouse_request_log.h"

#include "support/keelhouse_commands.h"
#include "wire/json.h"

namespace paddock::keelhouse {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kCannotRun =
    "program /usr/sbin/exportfs cannot be run: No such file or directory";
constexpr const char* kNotTold =
    "paddock_sharing: A service was not told of the share point a: paddock_nfs: "
    "/usr/sbin/exportfs: No such file or directory";
constexpr const char* kExports =
    "paddock_sharing: The exports file does not follow the change of the share point a: it is full";

std::vector<LogLine> errors(const std::vector<std::string>& texts) {
  std::vector<LogLine> lines;
  for (const std::string& text : texts) lines.push_back({"", "error", text});
  return lines;
}

std::vector<std::string> troubles(const std::vector<LogLine>& log, const std::string& said = {},
                                  const std::string& root = {}, bool warnings = false) {
  std::vector<std::string> texts;
  for (const LogLine& line : newTroubles(log, said, root, warnings)) texts.push_back(line.text);
  return texts;
}

class RequestLogReports : public CommandFixture {
 protected:
  void answerChanged() { daemon_.answer(R"({"status":0})", 200, "X-Request-Id: r1\r\n"); }
  // Each "LEVEL", "TEXT" as it stands in JSON.
  void answerLog(const std::vector<std::pair<std::string, std::string>>& lines) {
    std::string text;
    for (const auto& [level, said] : lines) {
      text += std::string(text.empty() ? "" : ",") +
              R"({"time":"2026-01-01T00:00:00.000Z","level":")" + level + R"(","text":")" + said +
              R"("})";
    }
    daemon_.answer(R"({"request":"r1","lines":[)" + text + "]}");
  }
  int put(std::vector<std::string> words = {}) {
    words.insert(words.end(), {"record", "put", "groups", "g", "a=b"});
    return run(words);
  }
};

TEST(Troubles, AreErrorsPlusWarningsOfFailures) {
  const std::vector<LogLine> log{{"", "info", "i"}, {"", "warning", "w"}, {"", "error", "e"}};
  EXPECT_THAT(troubles(log), ElementsAre("e"));
  EXPECT_THAT(troubles(log, {}, {}, true), ElementsAre("w", "e"));
}

TEST(Troubles, AreListedOnceEach) {
  EXPECT_THAT(troubles(errors({"a", "b", "a"})), ElementsAre("a", "b"));
}

TEST(Troubles, OmitAlreadyReportedErrors) {
  const auto log = errors({"paddock_sharing: /srv/a: it\x1B is full", "other"});
  EXPECT_THAT(troubles(log, "keelhouse: /srv/a: it\\x1B is full\n"), ElementsAre("other"));
  EXPECT_THAT(troubles(log, "keelhouse: /srv/b\n").size(), 2U);
}

TEST(Troubles, OfProgramAreReportedByItsCaller) {
  const std::string notTold =
      "paddock_sharing: A service was not told of the share point a: paddock_nfs: no such option";
  EXPECT_THAT(troubles(errors({"program /usr/sbin/exportfs exited with status 1", notTold})),
              ElementsAre(notTold));
  const LogLine failed{"", "error", "program /p exited with status 1"};
  const LogLine said{"", "warning", "program /p: careful"};
  EXPECT_THAT(troubles({said, failed}, {}, {}, true), ElementsAre(said.text, failed.text));
  EXPECT_THAT(troubles({said, {"", "error", "other"}}, {}, {}, true), ElementsAre("other"))
      << "of one that did what it should";
}

TEST(Troubles, IncludeMissingServicesOnlyWhereNeeded) {
  TestFolder folder;
  const auto log = errors({kCannotRun, kNotTold, kExports});
  EXPECT_THAT(troubles(log, {}, folder.path()), ElementsAre(kExports)) << "a tree of its own";
  const auto others = errors({"command to plug-in paddock_nfs failed: there is no plug-in \"x\"",
                              "paddock_sharing: A service was not told of the share points: "
                              "paddock_nfs: there is no plug-in \"x\"",
                              "paddock_sharing: A service was not told of the share points: "
                              "/usr/libexec/samba/synchronize-shares: No such file or directory"});
  EXPECT_THAT(troubles(others, {}, folder.path()), IsEmpty());
  EXPECT_EQ(troubles(others).size(), 2U) << "the system itself has them";
  EXPECT_THAT(troubles(log, "NFS: not served: no NFS server is installed (x)"),
              ElementsAre(kExports));
}

TEST(Troubles, GiveAdviceFromTheirReasons) {
  EXPECT_EQ(adviceOn(errors({"x: No space left on device", "y: No space left on device"})),
            "Make room on the volume, then repeat the command.");
  EXPECT_EQ(adviceOn(errors({"x: Read-only file system"})),
            "Mount the volume for writing, then repeat the command.");
  EXPECT_EQ(adviceOn(errors({"the name is taken"})), "");
}

TEST_F(RequestLogReports, ErrorsOfCompletedChangeAreWarnings) {
  answerChanged();
  answerLog(
      {{"error", "it was\\u001b[31m late"}, {"info", "b"}, {"error", "it was\\u001b[31m late"}});
  EXPECT_EQ(put(), 0);
  EXPECT_EQ(out_, "");
  EXPECT_EQ(error_,
            "keelhouse: warning: this is done, and not all that goes with it:\n"
            "  error: it was\\x1B[31m late\n");
  EXPECT_EQ(target(1), "GET /v1/requests/r1/log");
}

TEST_F(RequestLogReports, ErrorsOfCompletedChangeAppearInJson) {
  answerChanged();
  answerLog({{"error", "late"}, {"warning", "w"}});
  EXPECT_EQ(put({"--json"}), 0);
  std::string fault;
  const auto printed = wire::parseJson(out_, fault);
  ASSERT_TRUE(printed) << out_;
  EXPECT_EQ(*printed,
            Value(Dictionary{{"log", Array{Value(Dictionary{{"time", "2026-01-01T00:00:00.000Z"},
                                                            {"level", "error"},
                                                            {"text", "late"}})}}}));
  EXPECT_THAT(error_, HasSubstr("  error: late\n"));
  answerChanged();
  answerLog({});
  EXPECT_EQ(put({"--json"}), 0);
  EXPECT_EQ(out_ + error_, "");
}

TEST(JsonDocuments, HaveTheLogBesideTheirOwnKeys) {
  EXPECT_EQ(withLog("{\"a\": 1}\n", {}), "{\"a\": 1}\n");
  EXPECT_EQ(withLog("{\"a\": 1}\n", {"x"}), "{\n  \"a\": 1,\n  \"log\": [\n    \"x\"\n  ]\n}\n");
  EXPECT_EQ(withLog("[]\n", {"x"}), "[]\n");
}

TEST_F(RequestLogReports, ErrorsStandBeneathTheSentenceOfAShare) {
  daemon_.answerServices("getServed",
                         R"({"status":0,"sharePoints":[{"path":"/srv/a","isShared":true,)"
                         R"("isServed":true,"sentence":"Shared over SMB as a"}]})");
  const std::string shared = R"({"path":"/srv/a","isShared":true})";
  daemon_.answer(readPart("sharePointRecord", shared));
  daemon_.answer(writtenPart("sharePointRecord", shared), 200, "X-Request-Id: r1\r\n");
  answerLog({{"error", kExports},
             {"error",
              "paddock_sharing: A service was not told of a: "
              "/usr/libexec/samba/synchronize-shares: it exited with status 1"}});
  EXPECT_EQ(run({"share", "set", "/srv/a", "--no-ftp"}), 0);
  EXPECT_EQ(error_,
            "Shared over SMB as a\n"
            "keelhouse: warning: this is done, and not all that goes with it:\n  error: " +
                std::string(kExports) +
                "\n  error: paddock_sharing: A service was not told of a: "
                "/usr/libexec/samba/synchronize-shares: it exited with status 1\n"
                "The next change writes the exports file, when it can be.\n"
                "When that is mended: /usr/libexec/samba/synchronize-shares\n");
}

TEST_F(RequestLogReports, ThatWasAskedForAloneIsNotPrinted) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"record", "list", "users"},
        std::vector<std::string>{"request", "paddock_directory", "putRecord", "{}"},
        std::vector<std::string>{"command", "directory:command", "=", "putRecord"}}) {
    const std::size_t before = asked();
    answerChanged();
    EXPECT_EQ(run(words), 0) << error_;
    EXPECT_EQ(asked(), before + 1) << words[0];
    EXPECT_EQ(error_, "");
  }
}

TEST_F(RequestLogReports, FailureReasonsReplaceGuesses) {
  daemon_.answer(R"({"status":22})", 200, "X-Request-Id: r1\r\n");
  EXPECT_EQ(put(), 1);
  EXPECT_EQ(error_,
            "keelhouse: g cannot be written: Invalid argument (EINVAL, 22)\n"
            "Check the names and values that were given.\n");
  daemon_.answer(R"({"status":5})", 200, "X-Request-Id: r1\r\n");
  answerLog({{"error", "directory.sqlite: No space left on device"}});
  EXPECT_EQ(put(), 1);
  EXPECT_EQ(error_,
            "keelhouse: g cannot be written: Input/output error (EIO, 5)\n"
            "  error: directory.sqlite: No space left on device\n"
            "Make room on the volume, then repeat the command.\n");
  daemon_.answer(R"({"status":22,"message":"no dictionary"})", 200, "X-Request-Id: r1\r\n");
  answerLog({{"error", "paddock_directory: no dictionary"}, {"error", "attributes"}});
  EXPECT_EQ(put({"--json"}), 1);
  EXPECT_EQ(error_,
            "keelhouse: g cannot be written: no dictionary (EINVAL, 22)\n"
            "  error: attributes\n");
  EXPECT_THAT(out_, AllOf(HasSubstr("paddock_directory: no dictionary"), Not(HasSubstr("Check"))));
}

TEST_F(RequestLogReports, LogExplainsUnappliedChange) {
  const std::string quotas = R"({"status":0,"volumeQuotas":{"isEnabled":false}})";
  daemon_.answer(quotas, 200, "X-Request-Id: r1\r\n");
  answerLog({{"error", "the kernel would not"}});
  EXPECT_EQ(run({"quota", "on", "/"}), 1);
  EXPECT_THAT(error_, HasSubstr("although the daemon reported success\n"
                                "  error: the kernel would not\n"));
}

}  // namespace
}  // namespace paddock::keelhouse
