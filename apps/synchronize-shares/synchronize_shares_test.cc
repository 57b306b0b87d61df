#include "synchronize-shares/synchronize_shares.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <sstream>

#include "platform/testing/recording_host_services.h"
#include "support/shares_fixture.h"

namespace paddock::synchronizer {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class SynchronizeShares : public SharesFixture {
 protected:
  int run(const std::vector<std::string>& words = {"synchronize-shares"}) {
    out_.str({});
    error_.str({});
    log_.clear();
    return runSynchronizeShares(words, root(), log_, out_, error_);
  }
  void expectDone() {
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(out_.str(), "");
    EXPECT_EQ(error_.str(), "");
  }
  // How often smbd was told to reload its configuration.
  std::size_t timesTold() const {
    return static_cast<std::size_t>(std::filesystem::exists(folder_.path("told"))
                                        ? readWholeFile(folder_.path("told")).size()
                                        : 0);
  }
  void installCountingSmbControl() const {
    installSmbControl("printf x >>" + folder_.path("told"));
  }

  RecordingLogger log_;
  std::ostringstream out_;
  std::ostringstream error_;
};

TEST_F(SynchronizeShares, WritesSectionsInOrderOfSharePointCreation) {
  addSharePoint("plans", "/srv/plans", "Plans");
  addSharePoint("films", "/srv/films", "Films");
  expectDone();
  EXPECT_THAT(sectionsIn(text()), ElementsAre("Plans", "Films", "global"));
  EXPECT_THAT(text(), HasSubstr("[Plans]\n    path = /srv/plans\n    comment = plans\n"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SynchronizeShares, DirectoryWithoutSharePointsWritesEmptyFile) {
  expectDone();
  EXPECT_THAT(sectionsIn(text()), ElementsAre("global"));
}

TEST_F(SynchronizeShares, MissingSmbNamePublishesAndLogsNothing) {
  addSharePoint("empty", "/srv/empty", "");
  node_->newRecord("none", schema::kSharePoints)->setAttribute(schema::kDirectoryPath, "/srv/none");
  expectDone();
  EXPECT_THAT(sectionsIn(text()), ElementsAre("global"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SynchronizeShares, OtherKindsOfRecordsAreNoShares) {
  node_->newRecord("anna", schema::kUsers)->setAttribute(schema::kSmbName, "anna");
  expectDone();
  EXPECT_THAT(text(), Not(HasSubstr("anna")));
}

TEST_F(SynchronizeShares, NextRunDropsRemovedSharePoint) {
  addSharePoint("plans", "/srv/plans", "Plans");
  expectDone();
  removeSharePoint("plans");
  expectDone();
  EXPECT_THAT(sectionsIn(text()), ElementsAre("global"));
}

TEST_F(SynchronizeShares, EachSkippedShareLogsOneWarning) {
  addSharePoint("a", "/srv/a", "homes");
  addSharePoint("b", "/srv/b", "b");
  addSharePoint("c", "/srv/c", "B");
  addSharePoint("d", "/srv/d\nguest ok = yes", "d");
  addSharePoint("e", "/srv/e", "e");
  expectDone();
  EXPECT_THAT(sectionsIn(text()), ElementsAre("b", "e", "global"));
  EXPECT_THAT(text(), Not(HasSubstr("guest")));
  const auto lines = log_.lines();
  ASSERT_EQ(lines.size(), 3U);
  for (const auto& line : lines) EXPECT_EQ(line.priority, kLogWarning);
  EXPECT_THAT(lines[0].text, StartsWith("share point \"a\" "));
  EXPECT_THAT(lines[1].text, StartsWith("share point \"c\" "));
  EXPECT_THAT(lines[2].text, StartsWith("share point \"d\" "));
}

TEST_F(SynchronizeShares, TheConfiguredAttributeIsNamed) {
  configure("[acl]\nattribute = \"user.NTACL\"\n");
  addSharePoint("a", "/a", "a");
  expectDone();
  EXPECT_THAT(text(), HasSubstr("acl_xattr:security_acl_name = user.NTACL\n"));
}

TEST_F(SynchronizeShares, FaultyConfigurationIsReportedAndChangesNothing) {
  addSharePoint("a", "/a", "a");
  expectDone();
  const std::string before = text();
  removeSharePoint("a");
  configure("[acl]\nattribut = \"user.NTACL\"\n");
  EXPECT_EQ(run(), 1);
  EXPECT_THAT(error_.str(), AllOf(StartsWith("synchronize-shares: " + root()),
                                  HasSubstr("paddockd.toml:2: "), HasSubstr("attribut")));
  EXPECT_EQ(text(), before);
}

TEST_F(SynchronizeShares, UnreadableDirectoryKeepsShares) {
  addSharePoint("a", "/a", "a");
  expectDone();
  const std::string before = text();
  node_.reset();
  writeWholeFile(database(), std::string(8192, 'x'));
  EXPECT_EQ(run(), 1);
  EXPECT_THAT(error_.str(), HasSubstr(database()));
  EXPECT_EQ(text(), before);
}

TEST_F(SynchronizeShares, SmbdIsNotifiedOnlyOfChangedFile) {
  installCountingSmbControl();
  addSharePoint("a", "/a", "a");
  expectDone();
  EXPECT_EQ(timesTold(), 1U);
  expectDone();
  EXPECT_EQ(timesTold(), 1U);
  removeSharePoint("a");
  expectDone();
  EXPECT_EQ(timesTold(), 2U);
}

TEST_F(SynchronizeShares, WithoutARunningSmbdNothingIsSaid) {
  installSmbControl("echo \"Can't find pid for destination 'smbd'\" >&2; exit 1");
  addSharePoint("a", "/a", "a");
  expectDone();
}

TEST_F(SynchronizeShares, FailedSmbdNotificationKeepsFileAndSetsStatus) {
  installSmbControl("echo trouble; exit 1");
  addSharePoint("a", "/a", "a");
  EXPECT_EQ(run(), 1);
  EXPECT_THAT(sectionsIn(text()), ElementsAre("a", "global"));
  EXPECT_THAT(error_.str(),
              AllOf(StartsWith("synchronize-shares: the shares are written, but smbd is not told"),
                    HasSubstr("trouble")));
}

TEST_F(SynchronizeShares, NextRunRepeatsFailedSmbdNotification) {
  installSmbControl("echo trouble; exit 1");
  addSharePoint("a", "/a", "a");
  EXPECT_EQ(run(), 1);
  EXPECT_EQ(run(), 1) << "still untold";
  installCountingSmbControl();
  expectDone();
  EXPECT_EQ(timesTold(), 1U);
  expectDone();
  EXPECT_EQ(timesTold(), 1U);
}

TEST_F(SynchronizeShares, UnusableCommandLineGivesExitStatusTwo) {
  EXPECT_EQ(run({"synchronize-shares", "now"}), 2);
  EXPECT_EQ(error_.str(),
            "synchronize-shares: \"now\" is no option\n"
            "usage: synchronize-shares [--no-limit | --help | --version]\n");
  EXPECT_FALSE(std::filesystem::exists(includeFile()));
}

TEST_F(SynchronizeShares, HelpAndVersionGoToStandardOutput) {
  EXPECT_EQ(run({"synchronize-shares", "--help"}), 0);
  EXPECT_THAT(out_.str(), StartsWith("usage: synchronize-shares"));
  EXPECT_EQ(run({"synchronize-shares", "--version"}), 0);
  EXPECT_THAT(out_.str(), AllOf(StartsWith("synchronize-shares "), EndsWith("\n")));
  EXPECT_FALSE(std::filesystem::exists(includeFile()));
}

TEST_F(SynchronizeShares, AMessageCannotSteerATerminal) {
  EXPECT_EQ(run({"synchronize-shares", "\x1B[2J"}), 2);
  EXPECT_THAT(error_.str(), HasSubstr("\\x1B[2J"));
}

}  // namespace
}  // namespace paddock::synchronizer
