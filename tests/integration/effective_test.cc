// What a user may do, asked through the running daemon: with the program of the tree, and with
// programs in its place that misbehave. Needs root.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "integration/sharing_daemon.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"

namespace paddock::testing {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace fs = std::filesystem;

constexpr const char* kPlace =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";
// Of no account of the host.
constexpr std::uint32_t kZoe = 2'031'000'001;

class Effective : public ::testing::Test {
 protected:
  explicit Effective(const std::string& configuration = {})
      : daemon_(configuration, {"paddock_sharing", "paddock_directory"}) {}
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may administer the daemon without a group";
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  }

  void install() const { fs::copy_file(EFFECTIVEPRIVS_PROGRAM, daemon_.tree().path(kPlace)); }
  void installScript(const std::string& text) const {
    const std::string program = daemon_.tree().path(kPlace);
    writeWholeFile(program, "#!/bin/sh\n" + text);
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  }
  // The reply for a file that everybody may read.
  Dictionary ask(const Value& uid) {
    const std::string file = folder_.path("file");
    writeWholeFile(file, "x");
    EXPECT_EQ(::chmod(file.c_str(), 0644), 0);
    return daemon_.ask("getEffectivePerms", {{"path", file}, {"uid", uid}});
  }
  static std::int64_t bitmapIn(const Dictionary& reply) {
    EXPECT_EQ(reply.string("error"), nullptr);
    return reply.integer("bitmap").value_or(-1);
  }
  std::int64_t bitmap() { return bitmapIn(ask(kZoe)); }
  void expectThatOthersAreAnswered() {
    const Dictionary reply = daemon_.readSettings(folder_.path());
    EXPECT_EQ(reply.integer("readStatus"), 0);
  }

  TestFolder folder_;
  SharingDaemon daemon_;
};

class ImpatientEffective : public Effective {
 protected:
  ImpatientEffective() : Effective("[limits]\nprogram_seconds = 1\n") {}
};

class EffectiveCommand : public Effective {
 protected:
  void SetUp() override {
    Effective::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (::setxattr(folder_.path().c_str(), "security.NTACL", "probe", 5, 0) != 0)
      GTEST_SKIP() << "no lists here: " << std::strerror(errno);
    ::removexattr(folder_.path().c_str(), "security.NTACL");
    install();
    keelhouse_ = daemon_.tree().path("/usr/sbin/keelhouse");
    fs::create_directories(fs::path(keelhouse_).parent_path());
    fs::copy_file(KEELHOUSE_PROGRAM, keelhouse_);
    shared_ = folder_.path("shared");
    fs::create_directory(shared_);
    ASSERT_EQ(::chmod(shared_.c_str(), 0750), 0);
    put("dsRecTypeStandard:Users", "paddock-zoe",
        {{"dsAttrTypeStandard:UniqueID", Array{std::to_string(kZoe)}}});
    put("dsRecTypeStandard:Groups", "paddock-club",
        {{"dsAttrTypeStandard:PrimaryGroupID", Array{std::to_string(kZoe)}},
         {"dsAttrTypeStandard:GroupMembership", Array{"paddock-zoe"}}});
  }

  void put(const std::string& type, const std::string& name, const Dictionary& attributes) const {
    const Dictionary reply =
        daemon_.askPlugin("paddock_directory", "putRecord",
                          {{"type", type}, {"name", name}, {"attributes", attributes}});
    EXPECT_EQ(reply.integer("status"), 0);
  }
  EndedProgram keelhouse(std::vector<std::string> words) const {
    words.insert(words.begin(), keelhouse_);
    return runProgram(words);
  }
  std::string done(const std::vector<std::string>& words) const {
    const EndedProgram ended = keelhouse(words);
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.error, "");
    return ended.output;
  }

  std::string keelhouse_;
  std::string shared_;
};

TEST_F(Effective, TheProgramsNumberIsTheBitmap) {
  install();
  const Dictionary reply = ask(kZoe);
  EXPECT_EQ(bitmapIn(reply), 2 + 128 + 512 + 2048);
  EXPECT_EQ(*reply.string("path"), folder_.path("file"));
  EXPECT_EQ(bitmapIn(ask(0)), 16382);
}

TEST_F(Effective, EveryUidReachesTheProgramUnsigned) {
  installScript("echo 2; echo \"$*\" > " + folder_.path("arguments") + "\n");
  for (const auto& [uid, text] : std::vector<std::pair<Value, std::string>>{
           {2147483648U, "2147483648"}, {4294967295U, "4294967295"}}) {
    EXPECT_EQ(bitmapIn(ask(uid)), 2);
    EXPECT_EQ(readWholeFile(folder_.path("arguments")),
              "-p " + folder_.path("file") + " -u " + text + "\n");
  }
}

TEST_F(Effective, UnanswerableQuestionReturnsNothing) {
  install();
  EXPECT_EQ(
      bitmapIn(daemon_.ask("getEffectivePerms", {{"path", folder_.path("missing")}, {"uid", 0}})),
      0);
  EXPECT_THAT(daemon_.log(), HasSubstr("effectiveprivs: cannot open " + folder_.path("missing")));
}

TEST_F(Effective, AMissingProgramIsNothingAndLogged) {
  EXPECT_EQ(bitmap(), 0);
  EXPECT_THAT(daemon_.log(), HasSubstr("Cannot get effective permissions because " +
                                       std::string(kPlace) + " executable is missing"));
  expectThatOthersAreAnswered();
}

TEST_F(Effective, AProgramThatCannotBeRunIsNothing) {
  writeWholeFile(daemon_.tree().path(kPlace), "no program");
  EXPECT_EQ(bitmap(), 0);
  ASSERT_EQ(::chmod(daemon_.tree().path(kPlace).c_str(), 0755), 0);
  EXPECT_EQ(bitmap(), 0);
  expectThatOthersAreAnswered();
}

TEST_F(Effective, ProgramWritingStandardErrorReturnsNothing) {
  installScript("echo 6; echo oops >&2\n");
  EXPECT_EQ(bitmap(), 0);
  installScript("exit 1\n");
  EXPECT_EQ(bitmap(), 0);
}

TEST_F(Effective, LeadingBlanksAreSkippedEmptyOutputIsZero) {
  installScript("printf '  6\\n'\n");
  EXPECT_EQ(bitmap(), 6);
  installScript("");
  EXPECT_EQ(bitmap(), 0);
}

TEST_F(Effective, AGigabyteOfOutputIsNotKept) {
  installScript("echo 6; head -c 1000000000 /dev/zero\n");
  EXPECT_EQ(bitmap(), 6);
  std::ifstream status("/proc/" + std::to_string(daemon_.process()) + "/status");
  long peak = 0;
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) peak = std::stol(line.substr(6));
  EXPECT_GT(peak, 0);
  EXPECT_LT(peak, 300'000) << "KiB";
  expectThatOthersAreAnswered();
}

TEST_F(Effective, AGigabyteOfErrorsIsNotKeptEither) {
  installScript("head -c 1000000000 /dev/zero >&2\n");
  EXPECT_EQ(bitmap(), 0);
  expectThatOthersAreAnswered();
}

TEST_F(ImpatientEffective, HangingProgramIsTerminatedAndReleasesLock) {
  installScript("echo $$ > " + folder_.path("pid") + "; echo 6; exec sleep 600\n");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(bitmap(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  const int program = std::stoi(readWholeFile(folder_.path("pid")));
  EXPECT_FALSE(fs::exists("/proc/" + std::to_string(program)));
  expectThatOthersAreAnswered();
}

TEST_F(EffectiveCommand, SaysWhatAUserMayDo) {
  EXPECT_THAT(done({"effective", shared_, "paddock-zoe"}),
              AllOf(StartsWith("No: the kernel gives others ---\n  DOOR "),
                    EndsWith("\nread-attributes,read-security\n")));
  done({"acl", "set", shared_, "allow group:paddock-club list,search"});
  EXPECT_THAT(done({"effective", shared_, "paddock-zoe"}),
              EndsWith("\nlist,search,read-attributes,read-security\n"));
  EXPECT_EQ(done({"effective", shared_, std::to_string(kZoe)}),
            done({"effective", shared_, "paddock-zoe"}));
  EXPECT_THAT(done({"effective", shared_, "root"}),
              AllOf(StartsWith("Yes: root may read and write\n"), EndsWith("\nfull\n")));
  EXPECT_THAT(done({"--json", "effective", shared_, "root"}), HasSubstr("\"bitmap\":16382,"));
}

TEST_F(EffectiveCommand, ExplainsIt) {
  done({"acl", "set", shared_, "deny user:paddock-zoe search", "allow group:paddock-club list"});
  const std::string text = done({"effective", shared_, "paddock-zoe", "--explain"});
  EXPECT_THAT(text, AllOf(StartsWith("No: "),
                          HasSubstr("\n2178\npaddock-zoe (uid " + std::to_string(kZoe) + ") on ")));
  EXPECT_THAT(text, HasSubstr("  yes  list              entry 2: allow group:paddock-club\n"));
  EXPECT_THAT(text, HasSubstr("  no   search            entry 1: deny user:paddock-zoe\n"));
  EXPECT_THAT(done({"--json", "effective", shared_, "paddock-zoe", "--explain"}),
              HasSubstr("\"bitmap\":2178,"));
}

TEST_F(EffectiveCommand, TellsWhoMay) {
  done({"acl", "set", shared_, "deny user:paddock-zoe write", "allow group:paddock-club full"});
  const std::string text = done({"who", shared_});
  EXPECT_THAT(text, HasSubstr("\n" + shared_ + ": owner root, "));
  EXPECT_THAT(text, HasSubstr("  paddock-zoe       yes   no     yes          "));
  EXPECT_THAT(text, HasSubstr("  read, permissions: entry 2: allow group:paddock-club\n"));
  EXPECT_THAT(text, HasSubstr("  (everybody else)  no    no     no           "));
  EXPECT_THAT(done({"--json", "who", shared_}), HasSubstr("\"everybodyElse\":"));
}

TEST_F(EffectiveCommand, DamagedListFailsInBothModes) {
  ASSERT_EQ(::setxattr(shared_.c_str(), "security.NTACL", "\1", 1, 0), 0);
  const EndedProgram plain = keelhouse({"effective", shared_, "paddock-zoe"});
  EXPECT_EQ(plain.status, 1);
  EXPECT_EQ(plain.output, "");
  EXPECT_THAT(plain.error, HasSubstr("the ACL of " + shared_ + " cannot be read"));
  const EndedProgram explained = keelhouse({"effective", shared_, "paddock-zoe", "--explain"});
  EXPECT_EQ(explained.status, 1);
  EXPECT_EQ(explained.output, "");
  EXPECT_THAT(explained.error, HasSubstr("is damaged"));
}

TEST_F(EffectiveCommand, MissingPathFailsInBothModes) {
  for (const bool explain : {false, true}) {
    std::vector<std::string> words{"effective", folder_.path("missing"), "root"};
    if (explain) words.emplace_back("--explain");
    const EndedProgram ended = keelhouse(words);
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.error, HasSubstr(folder_.path("missing")));
  }
}

TEST_F(EffectiveCommand, ExplainsHostUserWithoutDaemon) {
  daemon_.stop();
  EXPECT_THAT(done({"effective", shared_, "root", "--explain"}),
              AllOf(StartsWith("Yes: "), HasSubstr("\n16382\n")));
}

}  // namespace
}  // namespace paddock::testing
