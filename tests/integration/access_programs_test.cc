// Who may do what, what a push would change, and the audit log: asked of the daemon by people who
// are not root. Needs root.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>

#include "integration/keelhouse_fixture.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kContents = "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/";
constexpr uid_t kNobody = 65534;
constexpr gid_t kNoGroup = 65534;

class AccessPrograms : public KeelhouseTree {
 protected:
  void SetUp() override {
    KeelhouseTree::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    const group* found = ::getgrgid(kNoGroup);
    if (found == nullptr) GTEST_SKIP() << "there is no group with the number 65534";
    group_ = found->gr_name;
    installPlugin("paddock_access");
    fs::copy_file(EFFECTIVEPRIVS_PROGRAM, tree_.path(kContents) + "effectiveprivs");
    fs::copy_file(COPYPRIVS_PROGRAM, tree_.path(kContents) + "copyprivs");
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    shared_ = makeFolder("shared");
    ASSERT_EQ(::chmod(shared_.c_str(), 0750), 0);
  }

  void start(const std::string& configuration) {
    tree_.configure(configuration);
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }
  void startWithViewer() { start("[access]\nview_group = \"" + group_ + "\"\n"); }
  void startWithAdministrator() { start("[access]\nadmin_group = \"" + group_ + "\"\n"); }

  Response askAsNobody(const std::string& operation, const Dictionary& request) const {
    return requestAs(
        kNobody, kNoGroup, tree_.socket(),
        requestText("POST", "/v1/paddock_access/" + operation, wire::writeJson(request)));
  }
  // What the program itself says.
  EndedProgram judge(std::vector<std::string> words) const {
    words.insert(words.begin(), tree_.path(kContents) + "effectiveprivs");
    return runProgram(words);
  }
  void replaceJudge(const std::string& script) const {
    const std::string program = tree_.path(kContents) + "effectiveprivs";
    fs::remove(program);
    writeWholeFile(program, "#!/bin/sh\n" + script);
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  }

  std::optional<RunningDaemon> daemon_;
  std::string group_;
  std::string shared_;
};

TEST_F(AccessPrograms, AViewerIsToldWhatTheProgramSays) {
  ASSERT_NO_FATAL_FAILURE(startWithViewer());
  const std::vector<std::pair<std::string, std::vector<std::string>>> questions = {
      {"effective", {"-p", shared_, "-u", "65534"}},
      {"explain", {"--explain", "-p", shared_, "-u", "65534"}},
      {"who", {"--who", "-p", shared_}}};
  for (const auto& [operation, words] : questions) {
    for (const bool json : {false, true}) {
      std::vector<std::string> arguments = words;
      if (json) arguments.insert(arguments.begin(), "--json");
      const EndedProgram said = judge(arguments);
      const Response response =
          askAsNobody(operation, {{"path", shared_}, {"uid", 65534}, {"json", json}});
      EXPECT_EQ(response.status, 200);
      EXPECT_EQ(
          response.dictionary(),
          (Dictionary{{"status", said.status}, {"output", said.output}, {"errors", said.error}}))
          << operation;
    }
  }
  EXPECT_THAT(*askAsNobody("who", {{"path", shared_}}).dictionary().string("output"),
              HasSubstr("root"));
}

TEST_F(AccessPrograms, ProgramFailureIsPassedOn) {
  ASSERT_NO_FATAL_FAILURE(startWithViewer());
  const std::string missing = folder_.path("none");
  const EndedProgram said = judge({"--who", "-p", missing});
  ASSERT_NE(said.status, 0);
  const Dictionary reply = askAsNobody("who", {{"path", missing}}).dictionary();
  EXPECT_EQ(reply.integer("status"), said.status);
  EXPECT_EQ(*reply.string("errors"), said.error);
  replaceJudge("echo half of it; echo cannot tell >&2; exit 4\n");
  const EndedProgram ended = keelhouse({"who", shared_});
  EXPECT_EQ(ended.status, 4);
  EXPECT_EQ(ended.output, "half of it\n");
  EXPECT_EQ(ended.error, "cannot tell\n");
}

TEST_F(AccessPrograms, KeelhousePrintsSameWithAndWithoutDaemon) {
  ASSERT_NO_FATAL_FAILURE(start(""));
  const std::vector<std::vector<std::string>> commands = {
      {"who", shared_}, {"effective", shared_, "65534", "--explain"}, {"--json", "who", shared_}};
  std::vector<std::string> byDaemon;
  for (const auto& command : commands) byDaemon.push_back(done(command));
  EXPECT_EQ(daemon_->stop(), 0);
  std::vector<std::string> byItself;
  for (const auto& command : commands) byItself.push_back(done(command));
  EXPECT_EQ(byDaemon, byItself);
  EXPECT_THAT(byItself[0], HasSubstr("root"));
}

TEST_F(AccessPrograms, OverlongProgramIsTerminatedAndReported) {
  ASSERT_NO_FATAL_FAILURE(start("[limits]\nprogram_seconds = 1\n"));
  replaceJudge("exec sleep 1000\n");
  const EndedProgram ended = keelhouse({"who", shared_});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.error, HasSubstr("effectiveprivs took too long"));
  EXPECT_THAT(ended.error, HasSubstr("\n  error: program "));
}

TEST_F(AccessPrograms, AdministratorSeesWhatPushWouldChange) {
  ASSERT_NO_FATAL_FAILURE(startWithAdministrator());
  writeWholeFile(shared_ + "/file", "x");
  ASSERT_EQ(::chown((shared_ + "/file").c_str(), 7, 7), 0);
  const Response response = askAsNobody("previewPropagation", {{"path", shared_}, {"mask", 1}});
  EXPECT_EQ(response.status, 200);
  const Dictionary answer = response.dictionary();
  EXPECT_EQ(answer.integer("status"), 0) << response.body;
  const std::string* report = answer.string("report");
  ASSERT_NE(report, nullptr) << response.body;
  EXPECT_THAT(*report, HasSubstr("<key>itemsChanged</key>"));
  EXPECT_THAT(*report, HasSubstr(shared_ + "/file"));
  struct stat status {};
  ASSERT_EQ(::stat((shared_ + "/file").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 7U);
  for (const auto& entry : fs::directory_iterator(tree_.path("/var/lib/paddock")))
    EXPECT_THAT(entry.path().filename().string(), Not(::testing::StartsWith("preview.")));
  EXPECT_THAT(done({"propagate", shared_, "--owner", "--dry-run"}), HasSubstr("1 would change"));
  EXPECT_THAT(tree_.read("/var/log/paddock/audit.jsonl"), HasSubstr("previewPropagation"));
}

TEST_F(AccessPrograms, ViewerSeesNeitherPushPreviewNorAuditLog) {
  ASSERT_NO_FATAL_FAILURE(startWithViewer());
  const Response refused = askAsNobody("previewPropagation", {{"path", shared_}, {"mask", 1}});
  EXPECT_EQ(refused.status, 403);
  EXPECT_THAT(refused.error(), HasSubstr("you need to be in the group paddock: "));
  EXPECT_EQ(requestAs(kNobody, kNoGroup, tree_.socket(), requestText("GET", "/v1/audit")).status,
            403);
}

TEST_F(AccessPrograms, TheAuditLogIsShown) {
  ASSERT_NO_FATAL_FAILURE(start(""));
  ASSERT_EQ(keelhouse({"share", "add", shared_}).status, 0);
  const std::string shown = done({"audit", "--limit", "1"});
  EXPECT_THAT(shown, HasSubstr("root"));
  EXPECT_THAT(shown, HasSubstr("paddock_sharing  writeSettings  done     " + shared_ + "\n"));
}

}  // namespace
}  // namespace paddock::testing
