// Lines added to the exports file by hand while the daemon runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "integration/keelhouse_fixture.h"

namespace paddock::testing {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

class ManualExportsEdits : public KeelhouseFixture {
 protected:
  void append(const std::string& line) const {
    std::ofstream(tree_.path("/etc/exports"), std::ios::app) << line;
  }
  // The files of the name in /etc that begin so.
  std::vector<std::string> filesBeginning(const std::string& beginning) const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(tree_.path("/etc"))) {
      const std::string name = entry.path().filename();
      if (name.starts_with(beginning)) names.push_back(name);
    }
    return names;
  }
};

TEST_F(ManualExportsEdits, StayWhateverIsChangedOfAnyShare) {
  tree_.write("/etc/exports", "/srv/public *(ro)\n");
  const std::string photos = makeFolder("photos");
  done({"share", "add", photos, "--nfs", "*(rw)"});
  append("/srv/first 10.0.0.1(ro)\n");
  done({"acl", "set", photos, "allow user:root list"});
  EXPECT_THAT(tree_.read("/etc/exports"), EndsWith("/srv/public *(ro)\n/srv/first 10.0.0.1(ro)\n"));
  append("/srv/second 10.0.0.1(ro) \\\n\n/srv/third *(ro)\n");
  done({"privs", "set", photos, "--mode", "750"});
  done({"share", "set", photos, "--nfs", "10.0.0.0/8(rw)"});
  append("/srv/fourth 10.0.0.1(ro)\n");
  done({"share", "remove", photos});
  const std::string left = tree_.read("/etc/exports");
  EXPECT_THAT(left, HasSubstr("/srv/public *(ro)\n/srv/first 10.0.0.1(ro)\n"
                              "/srv/second 10.0.0.1(ro) \\\n"));
  EXPECT_THAT(left, EndsWith("/srv/third *(ro)\n/srv/fourth 10.0.0.1(ro)\n"));
  EXPECT_THAT(left, Not(HasSubstr(photos)));
  EXPECT_TRUE(filesBeginning("exports.replaced-").empty());
}

TEST_F(ManualExportsEdits, AreShownOfAShareAsTheyAre) {
  const std::string photos = makeFolder("photos");
  done({"share", "add", photos, "--nfs", "*(rw)"});
  std::string text = tree_.read("/etc/exports");
  text.replace(text.find("*(rw)"), 5, "10.9.8.7(ro)");
  tree_.write("/etc/exports", text);
  EXPECT_THAT(done({"share", "show", photos}), HasSubstr("10.9.8.7(ro)"));
}

TEST_F(ManualExportsEdits, AreKeptBesideFileReplacedDuringEditing) {
  tree_.write("/etc/exports", "# mine\n");
  std::ofstream editor(tree_.path("/etc/exports"), std::ios::app);
  done({"share", "add", makeFolder("photos"), "--nfs", "*(rw)"});
  editor << "/by/hand *(ro)\n" << std::flush;
  const auto kept = filesBeginning("exports.replaced-");
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_TRUE(std::regex_match(kept.front(), std::regex(R"(exports\.replaced-\d{8}T\d{6}Z)")))
      << kept.front();
  EXPECT_EQ(tree_.read("/etc/" + kept.front()), "# mine\n/by/hand *(ro)\n");
  EXPECT_THAT(daemon_->log(), HasSubstr("/etc/exports was open for writing elsewhere while it was "
                                        "replaced; that file is kept as "));
  EXPECT_THAT(daemon_->log(), HasSubstr(kept.front()));
  EXPECT_TRUE(filesBeginning(".exports").empty());
}

TEST_F(ManualExportsEdits, RemovedFileIsRecreatedReportingRestoredLines) {
  tree_.write("/etc/exports", "/srv/public *(ro)\n");
  const std::string photos = makeFolder("photos");
  ASSERT_EQ(keelhouse({"share", "add", photos, "--nfs", "*(rw)"}).status, 0);
  const std::string before = tree_.read("/etc/exports");
  std::filesystem::remove(tree_.path("/etc/exports"));
  const std::string gone = tree_.path("/etc/exports") + " is gone, removed by somebody else; ";
  EXPECT_TRUE(eventually([&] { return daemon_->log().find(gone) != std::string::npos; }))
      << "without any request";
  const auto set = keelhouse({"acl", "set", photos, "allow", "user:root", "list"});
  EXPECT_EQ(set.status, 0);
  EXPECT_THAT(set.error, HasSubstr("error: paddock_sharing: "));
  EXPECT_THAT(set.error,
              HasSubstr("/etc/exports was gone, removed by somebody else; it is made anew with 2 "
                        "lines that it had: "));
  EXPECT_THAT(set.error, HasSubstr("/srv/public *(ro)"));
  EXPECT_EQ(tree_.read("/etc/exports"), before);
  EXPECT_THAT(keelhouse({"acl", "clear", photos}).error, Not(HasSubstr("was gone")));
}

}  // namespace
}  // namespace paddock::testing
