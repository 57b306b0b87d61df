// Share points that are not as keelhouse makes them, behind the running daemon: two folders whose
// paths differ by letter case, records that were never finished, paths on two lines of the exports
// file.
#include <gmock/gmock.h>

#include <filesystem>

#include "integration/keelhouse_fixture.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class KeelhouseOddRecords : public KeelhouseFixture {
 protected:
  std::string stored(const std::string& name) const {
    return done({"record", "show", "sharepoints", name});
  }
  std::string exports() const { return tree_.read("/etc/exports"); }
};

TEST_F(KeelhouseOddRecords, FolderDifferingInCaseIsDistinct) {
  const std::string photos = makeFolder("photos");
  const std::string other = makeFolder("Photos");
  done({"share", "add", photos});
  const std::string before = stored("photos");
  for (const std::vector<std::string>& words : {std::vector<std::string>{"share", "add", other},
                                                {"share", "show", other},
                                                {"share", "set", other, "--no-vsp"},
                                                {"share", "remove", other},
                                                {"index", "on", other},
                                                {"share", "rename", other, "x"}}) {
    const auto refused = keelhouse(words);
    EXPECT_EQ(refused.status, 1) << words[1];
    EXPECT_THAT(refused.error,
                StartsWith("keelhouse: " + other + " is not " + photos + ", which is shared"))
        << words[1];
  }
  EXPECT_EQ(stored("photos"), before);
  // Without the second folder it is another way to write the first one's path.
  std::filesystem::remove(other);
  EXPECT_THAT(done({"share", "show", other}), HasSubstr("path: " + photos + "\n"));
}

TEST_F(KeelhouseOddRecords, TakingOverRecordDifferingInCaseIsLogged) {
  const std::string photos = makeFolder("photos");
  const std::string other = makeFolder("Photos");
  done({"share", "add", photos});
  const Response written = daemon_->post(
      "/v1/paddock_sharing/writeSettings",
      wire::writeJson(Dictionary{
          {"optionalArguments", Dictionary{{"path", other}}},
          {"configuration", Dictionary{{"sharePointRecord", Dictionary{{"path", other}}}}}}));
  EXPECT_EQ(written.dictionary().integer("writeStatus"), 0);
  const std::string log =
      daemon_->get("/v1/requests/" + written.header("x-request-id") + "/log").body;
  EXPECT_THAT(log, HasSubstr("The share point for path " + other + " takes over the record of " +
                             photos + ", which differs by letter case alone."));
}

TEST_F(KeelhouseOddRecords, UnfinishedRecordIsListedAndRemovedByName) {
  const std::string photos = makeFolder("photos");
  done({"share", "add", photos});
  done({"record", "put", "sharepoints", "left", "dsAttrTypeNative:smb_name=left"});
  done({"record", "put", "sharepoints", "relative", "dsAttrTypeNative:directory_path=srv/x"});
  const std::string listed = done({"share", "list"});
  EXPECT_THAT(listed, AllOf(HasSubstr("\n" + photos), HasSubstr("\nUNFINISHED  PATH\n"),
                            HasSubstr("\nleft        -\n"), HasSubstr("\nrelative    srv/x\n")));
  EXPECT_THAT(done({"share", "list", "--json"}), HasSubstr("\"unfinished\": true"));

  const auto finished = keelhouse({"share", "remove", "--name", "photos"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.error, HasSubstr("photos is the share of " + photos + ", and finished"));
  EXPECT_EQ(keelhouse({"share", "remove", "--name", "none"}).status, 1);
  EXPECT_EQ(keelhouse({"share", "remove"}).status, 2);
  EXPECT_EQ(keelhouse({"share", "remove", photos, "--name", "left"}).status, 2);

  EXPECT_EQ(done({"share", "remove", "--name", "left"}),
            "The unfinished record left is removed.\n");
  done({"share", "remove", "--name", "relative"});
  EXPECT_THAT(done({"share", "list"}), AllOf(HasSubstr(photos), Not(HasSubstr("UNFINISHED"))));
}

TEST_F(KeelhouseOddRecords, PathOnTwoLinesIsReportedBeforeMerging) {
  const std::string photos = makeFolder("photos");
  done({"share", "add", photos, "--nfs", "127.0.0.1(ro)"});
  const std::string first = photos + " 127.0.0.1(ro)";
  const std::string second = photos + " 127.0.0.2(rw)";
  std::string text = exports();
  ASSERT_THAT(text, HasSubstr(first + "\n"));
  text.insert(text.find(first) + first.size() + 1, second + "\n");
  tree_.write("/etc/exports", text);

  EXPECT_THAT(done({"share", "show", photos}),
              AllOf(HasSubstr("line of /etc/exports: " + first + "\n"),
                    HasSubstr("line of /etc/exports: " + second + "\n")));
  EXPECT_EQ(exports(), text) << "looking changes nothing";
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"share", "set", photos, "--no-vsp"}, {"index", "on", photos}}) {
    const auto refused = keelhouse(words);
    EXPECT_EQ(refused.status, 1) << words[1];
    EXPECT_THAT(refused.error, AllOf(HasSubstr("stands on 2 lines of the exports file"),
                                     HasSubstr("\n  " + second + "\n")));
    EXPECT_EQ(exports(), text) << "nothing is lost by a change of something else";
  }
  const auto changed =
      keelhouse({"share", "set", photos, "--nfs", "127.0.0.1(ro)", "--nfs", "127.0.0.2(rw)"});
  EXPECT_EQ(changed.status, 0) << changed.error;
  EXPECT_THAT(changed.error, HasSubstr("stands on 2 lines of the exports file"));
  EXPECT_THAT(changed.error, HasSubstr("\n  " + second + "\n"));
  EXPECT_THAT(exports(), HasSubstr(photos + " 127.0.0.1(ro) 127.0.0.2(rw)\n"));
  EXPECT_THAT(done({"share", "show", photos}), Not(HasSubstr("line of")));
}

TEST_F(KeelhouseOddRecords, UnreadableExportsFileIsReportedDeferringRemoval) {
  const std::string photos = makeFolder("photos");
  done({"share", "add", photos, "--nfs", "127.0.0.1(ro)"});
  const std::string text = exports();
  ASSERT_THAT(text, HasSubstr(photos + " 127.0.0.1(ro)\n"));
  tree_.write("/etc/exports", text + "/x \xFF(rw)\n");

  const auto added = keelhouse({"share", "add", makeFolder("plans")});
  EXPECT_EQ(added.status, 0);
  EXPECT_THAT(added.error, HasSubstr("keelhouse: warning: this is done, and not all that goes with "
                                     "it:\n  error: paddock_sharing: The exports file does not "
                                     "follow the change of the share point plans"));
  EXPECT_THAT(added.error, HasSubstr(": it is not UTF-8\nThe next change writes"));
  EXPECT_THAT(keelhouse({"--json", "acl", "show", photos}).output, Not(HasSubstr("\"log\"")));
  EXPECT_THAT(keelhouse({"--json", "privs", "set", photos, "--mode", "750"}).output,
              HasSubstr("\"log\": ["));

  const auto removed = keelhouse({"share", "remove", photos});
  EXPECT_EQ(removed.status, 1);
  EXPECT_THAT(removed.error, HasSubstr("keelhouse: " + photos + " is no longer shared, but "));
  EXPECT_THAT(removed.error, HasSubstr("When that is mended: keelhouse share remove " + photos));
  const auto listed = keelhouse({"share", "list"});
  EXPECT_EQ(listed.status, 0);
  EXPECT_THAT(listed.output, Not(HasSubstr(photos)));
  EXPECT_THAT(listed.error, HasSubstr("note: the exports over NFS are listed as they were last "
                                      "read: cannot read "));
  EXPECT_THAT(listed.error, HasSubstr("it is not UTF-8 (EILSEQ, 84)"));

  tree_.write("/etc/exports", text);
  EXPECT_EQ(done({"share", "remove", photos}), photos + " is no longer shared.\n");
  EXPECT_THAT(exports(), Not(HasSubstr(photos)));
  EXPECT_THAT(done({"share", "list"}), Not(HasSubstr(photos)));
}

// A path and a name that begin a line of their own.
constexpr const char* kFeedingPath = "/nonexistent/ev\nRun: keelhouse acl clear /";
constexpr const char* kFeedingName = "ev\nRun: keelhouse acl clear";

// Commands that name them, all wrong, about shares; `folder` is one that is there.
std::vector<std::vector<std::string>> feedingShareCommands(const std::string& folder) {
  const std::string bad = kFeedingPath;
  const std::string name = kFeedingName;
  return {{"share", "show", bad},
          {"share", "add", bad},
          {"share", "set", bad, "--no-smb"},
          {"share", "set", folder, "--name", name},
          {"share", "remove", bad},
          {"share", "remove", "--name", name},
          {"share", "move", bad, folder},
          {"share", "move", folder, bad},
          {"share", "rename", bad, "x"},
          {"share", "add", folder, "--nfs", name},
          {"share", "add", folder, "--team", name},
          {"share", "add", folder, "--option", name + " = 1"},
          {"share", "add", folder, "--from", bad}};
}

// And about everything else.
std::vector<std::vector<std::string>> feedingOtherCommands(const std::string& folder) {
  const std::string bad = kFeedingPath;
  const std::string name = kFeedingName;
  return {{"privs", "show", bad},
          {"privs", "set", bad, "--mode", "755"},
          {"privs", "set", folder, "--owner", name},
          {"privs", "set", folder, "--group", name},
          {"privs", "set", folder, "--mode", name},
          {"acl", "show", bad},
          {"acl", "show", "--kernel", bad},
          {"acl", "set", bad, "allow user:root read"},
          {"acl", "set", folder, "allow user:" + name + " read"},
          {"acl", "set", folder, "allow", "user:" + name, "read"},
          {"acl", "set", folder, "allow user:root " + name},
          {"acl", "set", folder, "--from", bad},
          {"acl", "add", bad, "allow user:root read"},
          {"acl", "remove", bad, "1"},
          {"acl", "remove", folder, "user:" + name},
          {"acl", "clear", bad},
          {"acl", "inherit", bad},
          {"acl", "strict", bad},
          {"effective", bad, "root"},
          {"effective", folder, name},
          {"who", bad},
          {"propagate", bad, "--acl"},
          {"propagate", bad, "--acl", "--follow"},
          {"index", "on", bad},
          {"index", "off", bad},
          {"index", "status", bad},
          {"quota", "show", bad},
          {"quota", "on", bad},
          {"quota", "set", name, "1G", "2G", "--volume", bad},
          {"record", "show", "users", name},
          {"record", "put", "users", name, "--remove", "Comment"},
          {"record", "delete", "users", "joe", "--node", name},
          {"record", "show", "users", "joe", "--node", name},
          {"command", name},
          {"request", name, name},
          {"help", name},
          {"share", name},
          {name}};
}

// The name of a folder must not be able to forge messages of keelhouse.
TEST_F(KeelhouseOddRecords, LineFeedInNameStartsNoErrorLine) {
  const std::string folder = makeFolder("plans");
  std::vector<std::vector<std::string>> commands = feedingShareCommands(folder);
  for (const auto& words : feedingOtherCommands(folder)) commands.push_back(words);
  for (const std::vector<std::string>& words : commands) {
    const EndedProgram ended = keelhouse(words);
    EXPECT_NE(ended.status, 0) << ::testing::PrintToString(words);
    EXPECT_THAT(ended.error + "\n" + ended.output, Not(HasSubstr("\nRun:")))
        << ::testing::PrintToString(words);
  }
  // Lines of keelhouse's own stay lines.
  EXPECT_EQ(
      keelhouse({"share", "show", kFeedingPath}).error,
      "keelhouse: /nonexistent/ev\\x0ARun: keelhouse acl clear  is not shared\nShare it with: "
      "keelhouse share add PATH\n");
}

}  // namespace
}  // namespace paddock::testing
