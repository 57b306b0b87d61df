// A directory server of the site behind the running daemon: mount records in it, its users in ACLs,
// its passwords, and what becomes of requests when it is silent.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>

#include "integration/keelhouse_fixture.h"
#include "support/slapd_server.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kNode = "/LDAP/site";
constexpr const char* kPassword = "writer's";
constexpr const char* kEffectivePrivs =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";

std::string hostName() {
  std::array<char, 256> name{};
  EXPECT_EQ(::gethostname(name.data(), name.size()), 0);
  return name.data();
}

class KeelhouseLdap : public KeelhouseTree {
 protected:
  void SetUp() override {
    KeelhouseTree::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (const std::string why = whyNoSlapd(); !why.empty()) GTEST_SKIP() << why;
    slapd_.emplace();
    slapd_->addPerson("writer", kPassword, true);
    slapd_->addPerson("reader", "reader's", false);
    tree_.configure("[[ldap]]\nname = \"site\"\nuri = \"" + slapd_->ldapiUri() + "\"\nbase = \"" +
                    SlapdServer::kBase + "\"\nrecords_base = \"" + SlapdServer::kRecords +
                    "\"\ntls = \"none\"\ntimeout = 1\nwritable = true\n");
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }

  EndedProgram asWriter(std::vector<std::string> words) const {
    words.insert(words.end(), {"--admin", "writer", "--admin-password-fd", "0"});
    return keelhouse(std::move(words), kPassword + std::string("\n"));
  }
  // The mount records, as ldapsearch prints them; a long value is one line.
  std::string mounts() const {
    return slapd_->search({"-o", "ldif-wrap=no", "-b", SlapdServer::kRecords,
                           "(paddockType=dsRecTypeStandard:Mounts)"});
  }
  // What a mounting client sees of them, sorted: it binds anonymously, and knows only the schema's
  // own attributes.
  std::vector<std::string> mountsForClients() const {
    const EndedProgram ended =
        runProgram({"/usr/bin/ldapsearch", "-x", "-LLL", "-o", "ldif-wrap=no", "-H",
                    slapd_->ldapiUri(), "-b", SlapdServer::kBase, "(objectClass=paddockMount)",
                    "cn", "paddockVFSLinkDir", "paddockVFSType", "paddockVFSOpts"},
                   "");
    EXPECT_EQ(ended.status, 0) << ended.error;
    std::vector<std::string> lines = linesOf(ended.output);
    std::erase_if(lines,
                  [](const std::string& line) { return line.empty() || line.starts_with("dn: "); });
    std::sort(lines.begin(), lines.end());
    return lines;
  }
  // Users "userN" with the uid 70000 + N, whose full name is "User N of the site".
  void addUsers(int count) {
    std::string entries;
    for (int number = 0; number < count; ++number) {
      const std::string text = std::to_string(number);
      entries += "dn: uid=user" + text + "," + SlapdServer::kPeople +
                 "\nobjectClass: inetOrgPerson\nobjectClass: posixAccount\nuid: user" + text +
                 "\ncn: User " + text + " of the site\nsn: " + text +
                 "\nuidNumber: " + std::to_string(70000 + number) +
                 "\ngidNumber: 70000\nhomeDirectory: /home/user" + text + "\n\n";
    }
    slapd_->add(entries);
  }
  // Gives the folder an entry for each of the first users, by uid.
  Response writeAcl(const std::string& path, int count) const {
    Array entries;
    for (int number = 0; number < count; ++number)
      entries.emplace_back(Dictionary{{"allowPermission", "YES"},
                                      {"bitmap", 2},
                                      {"flags", 0},
                                      {"isUser", 0},
                                      {"uniqueID", 70000 + number}});
    return daemon_->post(
        "/v1/paddock_sharing/writeSettings",
        wire::writeJson(Dictionary{
            {"optionalArguments", Dictionary{{"path", path}}},
            {"configuration", Dictionary{{"fileAccessPrivs", Dictionary{{"acl", entries}}}}}}));
  }
  std::string readFolder(const std::string& path) const {
    return daemon_
        ->post("/v1/paddock_sharing/readSettings",
               wire::writeJson(Dictionary{{"optionalArguments", Dictionary{{"path", path}}}}))
        .body;
  }
  std::string whyNoLists() const {
    const std::string path = folder_.path();
    if (::setxattr(path.c_str(), "security.NTACL", "probe", 5, 0) != 0)
      return std::string("security.NTACL cannot be written here: ") + std::strerror(errno);
    ::removexattr(path.c_str(), "security.NTACL");
    return {};
  }

  std::optional<SlapdServer> slapd_;
  std::optional<RunningDaemon> daemon_;
};

TEST_F(KeelhouseLdap, TheNodeIsListedAndTried) {
  EXPECT_THAT(done({"nodes"}), HasSubstr("/LDAP/site  writable (as configured)  "));
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getDSNodes", "{}").body,
            "{\"dsNodeArray\":[\"/Local\",\"/LDAP/site\"]}\n");
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root(), "--check-config", "--try-ldap"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.output, ::testing::StartsWith("/LDAP/site: writable (as configured), "));
}

TEST_F(KeelhouseLdap, AuthTellsWhoMayWriteThere) {
  const auto authenticate = [&](const std::string& user, const std::string& password) {
    return keelhouse({"auth", kNode, user}, password + "\n");
  };
  EXPECT_EQ(authenticate("writer", kPassword).output, "writer may change records on /LDAP/site.\n");
  for (const auto& refused : {authenticate("writer", "wrong"), authenticate("reader", "reader's"),
                              authenticate("nobody here", "x")}) {
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr("Permission denied"));
  }
  EXPECT_EQ(mounts(), "");
  for (const std::string& text : {tree_.read("/var/log/paddock/audit.jsonl"), daemon_->log()})
    EXPECT_THAT(text, AllOf(Not(HasSubstr(kPassword)), Not(HasSubstr("reader's"))));
}

TEST_F(KeelhouseLdap, TrialBlockedByLeftoverRecordExplainsRemedy) {
  const std::string left = "verifyAuthTempName";
  ASSERT_EQ(asWriter({"record", "put", "mounts", left, "--node", kNode}).status, 0);
  const auto trial = [&] {
    return keelhouse({"auth", kNode, "writer"}, kPassword + std::string("\n"));
  };
  const auto refused = trial();
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error,
              AllOf(HasSubstr("File exists"),
                    HasSubstr("keelhouse record delete mounts " + left + " --node " + kNode)));
  ASSERT_EQ(asWriter({"record", "delete", "mounts", left, "--node", kNode}).status, 0);
  EXPECT_EQ(trial().status, 0);
}

TEST_F(KeelhouseLdap, SharedFoldersMountRecordIsChangedAndRemoved) {
  const std::string path = makeFolder("team projects");
  const std::string name = hostName() + ":" + path;
  const std::string url =
      "paddockVFSOpts: url==vsp://;AUTH=NO%20USER%20AUTHENT@" + hostName() + "/team%20projects";
  const auto added =
      asWriter({"share", "add", path, "--automount", "/Network/Servers/", "--node", kNode});
  ASSERT_EQ(added.status, 0) << added.error;
  EXPECT_THAT(mountsForClients(), ElementsAre("cn: " + name, "paddockVFSLinkDir: /Network/Servers/",
                                              "paddockVFSOpts: net", url, "paddockVFSType: url"));

  const auto changed =
      asWriter({"share", "set", path, "--automount", "/Network/Home", "--node", kNode});
  ASSERT_EQ(changed.status, 0) << changed.error;
  EXPECT_THAT(mountsForClients(), ElementsAre("cn: " + name, "paddockVFSLinkDir: /Network/Home",
                                              url, "paddockVFSType: url"));

  const auto overNfs =
      asWriter({"share", "set", path, "--nfs", "--automount", "/Network/Home", "--node", kNode});
  ASSERT_EQ(overNfs.status, 0) << overNfs.error;
  EXPECT_THAT(mountsForClients(), ElementsAre("cn: " + name, "paddockVFSLinkDir: /Network/Home",
                                              "paddockVFSType: nfs"));

  const auto removed = asWriter({"share", "remove", path});
  ASSERT_EQ(removed.status, 0) << removed.error;
  EXPECT_THAT(mountsForClients(), IsEmpty());
  EXPECT_EQ(mounts(), "");
  EXPECT_EQ(done({"share", "list", "--json"}), "[]\n");
}

TEST_F(KeelhouseLdap, MountRecordIsReadChangedAndRemovedAlone) {
  const std::string path = makeFolder("projects");
  const std::string name = hostName() + ":" + path;
  ASSERT_EQ(asWriter({"share", "add", path, "--automount", "/Network/a", "--node", kNode}).status,
            0);
  EXPECT_THAT(done({"record", "show", "mounts", name, "--node", kNode}), HasSubstr("/Network/a"));
  ASSERT_EQ(
      asWriter({"record", "put", "mounts", name, "VFSLinkDir=/Network/b", "--node", kNode}).status,
      0);
  EXPECT_THAT(mountsForClients(), Contains("paddockVFSLinkDir: /Network/b"));
  ASSERT_EQ(asWriter({"record", "delete", "mounts", name, "--node", kNode}).status, 0);
  EXPECT_EQ(mounts(), "");
}

TEST_F(KeelhouseLdap, ReadOnlyAccountCreatesNoMountRecord) {
  const std::string path = makeFolder("projects");
  const auto added = keelhouse({"share", "add", path, "--automount", "/Network/Servers", "--node",
                                kNode, "--admin", "reader", "--admin-password-fd", "0"},
                               "reader's\n");
  EXPECT_EQ(added.status, 1);
  EXPECT_EQ(mounts(), "");
}

TEST_F(KeelhouseLdap, SiteUsersAppearByNameInAcl) {
  if (const std::string why = whyNoLists(); !why.empty()) GTEST_SKIP() << why;
  const std::string path = makeFolder("projects");
  addUsers(2);
  ASSERT_EQ(writeAcl(path, 2).dictionary().integer("writeStatus"), 0);
  const std::string shown = done({"acl", "show", path});
  EXPECT_THAT(shown, AllOf(HasSubstr("User 0 of the site"), HasSubstr("User 1 of the site")));
  // The GUID that the server made is the one in the list.
  std::string uuid = slapd_->search({"-b", SlapdServer::kPeople, "(uid=user1)", "entryUUID"});
  uuid = uuid.substr(uuid.find("entryUUID: ") + 11, 36);
  for (char& character : uuid) character = static_cast<char>(std::toupper(character));
  EXPECT_THAT(done({"acl", "show", path, "--json"}), HasSubstr("\"guid\": \"" + uuid + "\""));
}

TEST_F(KeelhouseLdap, UsersOfTheSiteAreTypedByName) {
  if (const std::string why = whyNoLists(); !why.empty()) GTEST_SKIP() << why;
  const std::string path = makeFolder("projects");
  addUsers(1);
  EXPECT_THAT(done({"acl", "set", path, "allow", "user:user0", "read"}),
              HasSubstr("User 0 of the site"));
  EXPECT_THAT(done({"acl", "remove", path, "user:user0"}), Not(HasSubstr("User 0 of the site")));
  EXPECT_EQ(keelhouse({"acl", "set", path, "allow", "user:no-such-user", "read"}).status, 1);
}

TEST_F(KeelhouseLdap, LongListShowsAllUserNames) {
  if (const std::string why = whyNoLists(); !why.empty()) GTEST_SKIP() << why;
  constexpr int kCount = 60;  // about as many as the attribute of an inode holds
  const std::string path = makeFolder("projects");
  addUsers(kCount);
  ASSERT_EQ(writeAcl(path, kCount).dictionary().integer("writeStatus"), 0);
  const std::string shown = done({"acl", "show", path});
  for (int number = 0; number < kCount; ++number)
    EXPECT_THAT(shown, HasSubstr("User " + std::to_string(number) + " of the site\n"));
}

TEST_F(KeelhouseLdap, SilentServerIsAwaitedOnceForAllEntries) {
  if (const std::string why = whyNoLists(); !why.empty()) GTEST_SKIP() << why;
  const std::string path = makeFolder("projects");
  addUsers(60);
  ASSERT_EQ(writeAcl(path, 60).dictionary().integer("writeStatus"), 0);
  // One that does not know them yet.
  daemon_.emplace(tree_);
  slapd_->freeze();
  const auto began = std::chrono::steady_clock::now();
  const auto shown = keelhouse({"acl", "show", path});
  // With a second for each entry it would be a minute.
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(30));
  EXPECT_EQ(shown.status, 0) << shown.error;
  EXPECT_THAT(shown.output, AllOf(HasSubstr("user:70000 "), HasSubstr("user:70059 ")));
  const auto listed = keelhouse({"nodes"});
  EXPECT_EQ(listed.status, 1);
  EXPECT_THAT(listed.output, AllOf(HasSubstr("/Local      writable     "),
                                   HasSubstr("/LDAP/site  unreachable  ")));
  slapd_->thaw();
}

TEST_F(KeelhouseLdap, StoppedServerLeavesFoldersUsable) {
  if (const std::string why = whyNoLists(); !why.empty()) GTEST_SKIP() << why;
  const std::string path = makeFolder("projects");
  addUsers(2);
  ASSERT_EQ(writeAcl(path, 2).dictionary().integer("writeStatus"), 0);
  EXPECT_THAT(done({"acl", "show", path}), HasSubstr("User 1 of the site"));
  slapd_->stop();
  // One without cached answers of the server.
  daemon_.emplace(tree_);

  // Whom it alone knows reads as the GUID that is made of the number.
  const std::string guid = "2918733C-ACBF-4C23-AD09-B8FC00011170";
  EXPECT_THAT(done({"acl", "show", path}),
              AllOf(HasSubstr("user:70000 "), HasSubstr("user:70001 "), Not(HasSubstr("site"))));
  EXPECT_THAT(done({"acl", "show", path, "--json"}), HasSubstr("\"guid\": \"" + guid + "\""));
  EXPECT_THAT(readFolder(path), HasSubstr(R"("displayName":")" + guid + "\""));
  done({"privs", "show", path});
  EXPECT_THAT(done({"acl", "add", path, "allow user:root read", "allow everyone list"}),
              AllOf(HasSubstr("user:70001 "), HasSubstr("user:root "), HasSubstr("everyone ")));
  EXPECT_THAT(done({"acl", "remove", path, "user:70001"}), Not(HasSubstr("user:70001")));
  EXPECT_THAT(done({"privs", "set", path, "--mode", "750"}), HasSubstr("mode: 750 "));
  done({"share", "add", path});
  EXPECT_THAT(done({"share", "list"}), HasSubstr(path));
  EXPECT_THAT(done({"share", "show", path}), HasSubstr("nameOverSMB: projects"));
  done({"share", "set", path, "--comment", "Of the site"});
  done({"share", "remove", path});

  // A name that it may know is not reported as unknown.
  const auto unknown = keelhouse({"acl", "add", path, "allow user:user1 read"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.error, HasSubstr("/LDAP/site, which may have one, cannot be asked now"));

  slapd_->start();
  EXPECT_THAT(done({"nodes"}), HasSubstr("/LDAP/site  writable (as configured)  "));
  EXPECT_THAT(done({"acl", "show", path}), AllOf(HasSubstr("User 0 of the site"),
                                                 HasSubstr("user:root "), HasSubstr("everyone ")));
}

TEST_F(KeelhouseLdap, StoppedServerIsMarkedReportingOncePerRequest) {
  const std::string path = makeFolder("projects");
  const auto markedNodes = [&] {
    const Dictionary health = daemon_->get("/v1/health").dictionary();
    return wire::writeJson(*health.find("nodes"));
  };
  EXPECT_EQ(markedNodes(), "[]");
  slapd_->stop();
  const Response found = daemon_->post("/v1/paddock_directory/listRecords",
                                       R"({"node":"/Search","type":"dsRecTypeStandard:Users"})");
  EXPECT_EQ(found.dictionary().integer("status"), 0);
  EXPECT_FALSE(found.dictionary().array("records")->empty()) << "the host's users";
  EXPECT_THAT(markedNodes(), AllOf(HasSubstr(R"("path":"/LDAP/site")"),
                                   HasSubstr(R"("state":"unreachable")"), HasSubstr("since")));
  const std::string log =
      daemon_->get("/v1/requests/" + found.header("x-request-id") + "/log").body;
  EXPECT_THAT(log, HasSubstr("/LDAP/site does not answer and is left out"));
  EXPECT_EQ(log.find("left out"), log.rfind("left out")) << log;
  const auto status = keelhouse({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.output, HasSubstr("; left out of searches since "));
  // It is asked again on idle ticks.
  slapd_->start();
  EXPECT_TRUE(eventually([&] { return markedNodes() == "[]"; }));
  EXPECT_THAT(daemon_->log(), HasSubstr("the directory node /LDAP/site answers again"));
}

TEST_F(KeelhouseLdap, StoppedServerStillYieldsLocalUsersCertainRights) {
  if (const std::string why = whyNoLists(); !why.empty()) GTEST_SKIP() << why;
  std::filesystem::copy_file(EFFECTIVEPRIVS_PROGRAM, tree_.path(kEffectivePrivs));
  const std::string path = makeFolder("projects");
  for (const std::string& folder : {folder_.path(), path})
    ASSERT_EQ(::chmod(folder.c_str(), folder == path ? 0700 : 0755), 0);
  done({"record", "put", "users", "zoe", "dsAttrTypeStandard:UniqueID=2031000001"});
  done({"record", "put", "groups", "club", "dsAttrTypeStandard:PrimaryGroupID=2031000002"});
  ASSERT_EQ(keelhouse({"acl", "set", path, "allow", "user:zoe", "list,search"}).status, 0);
  ASSERT_EQ(keelhouse({"acl", "add", path, "allow group:club add-file"}).status, 0);
  EXPECT_THAT(done({"effective", path, "zoe"}),
              AllOf(HasSubstr("\nlist,search,"), Not(HasSubstr("Not known"))));
  EXPECT_THAT(done({"who", path}), Not(HasSubstr("Not known")));

  slapd_->stop();
  const auto effective = keelhouse({"effective", path, "zoe"});
  EXPECT_EQ(effective.status, 4) << effective.error;
  EXPECT_THAT(effective.output, HasSubstr("\nlist,search,read-attributes,read-security\n"));
  const auto explained = keelhouse({"effective", path, "zoe", "--explain"});
  EXPECT_EQ(explained.status, 4);
  EXPECT_THAT(explained.output,
              HasSubstr("entry 2 allows group:club, and /LDAP/site, which may count "
                        "the user as one, cannot be asked; else "));
  const auto who = keelhouse({"who", path});
  EXPECT_EQ(who.status, 4);
  EXPECT_THAT(who.output, ContainsRegex("\n  zoe  +yes   [?] "));
  for (const auto& ended : {effective, explained, who}) {
    EXPECT_THAT(ended.output,
                HasSubstr("Not known: what /LDAP/site alone knows of people and groups, because it "
                          "cannot be asked: "));
    EXPECT_EQ(ended.error, "");
  }
  // A name that only the server may know is not reported as unknown.
  const auto unknown = keelhouse({"effective", path, "user1"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.error, HasSubstr("/LDAP/site, which may have one, cannot be asked now"));

  slapd_->start();
  EXPECT_THAT(done({"effective", path, "zoe"}), Not(HasSubstr("Not known")));
}

TEST_F(KeelhouseLdap, AServerThatRefusesIsSaidToRefuse) {
  const std::string path = makeFolder("projects");
  slapd_->refuseEverybody();
  const Response found = daemon_->post("/v1/paddock_directory/listRecords",
                                       R"({"node":"/Search","type":"dsRecTypeStandard:Users"})");
  EXPECT_EQ(found.dictionary().integer("status"), 0);
  EXPECT_FALSE(found.dictionary().array("records")->empty()) << "the host's users";
  const std::string log =
      daemon_->get("/v1/requests/" + found.header("x-request-id") + "/log").body;
  EXPECT_THAT(log, HasSubstr("the directory node /LDAP/site refuses to answer and is left out: "));
  EXPECT_THAT(log, HasSubstr("Insufficient access"));
  EXPECT_THAT(daemon_->get("/v1/health").body, HasSubstr(R"("state":"refused")"));
  const auto status = keelhouse({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.output, ContainsRegex("node /LDAP/site +refused, [0-9]+ ms: .*Insufficient "
                                           "access.*; left out of searches since "));
  const auto listed = keelhouse({"nodes"});
  EXPECT_EQ(listed.status, 1);
  EXPECT_THAT(listed.output, HasSubstr("/LDAP/site  refused   "));
  EXPECT_THAT(daemon_->log(), Not(HasSubstr("does not answer")));
  // Folders stay available whatever node fails.
  done({"share", "add", path});
  EXPECT_THAT(done({"privs", "show", path}), HasSubstr("mode: "));
}

TEST_F(KeelhouseLdap, MissingServerIsReportedAndLocalNodeContinues) {
  slapd_->stop();
  EXPECT_EQ(done({"record", "list", "users"}), "");
  const auto listed = keelhouse({"nodes"});
  EXPECT_EQ(listed.status, 1);
  EXPECT_THAT(listed.output, HasSubstr("/LDAP/site  unreachable  "));
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getDSNodes", "{}").body,
            "{\"dsNodeArray\":[\"/Local\"]}\n");
  const auto refused = keelhouse({"auth", kNode, "writer"}, "x\n");
  EXPECT_EQ(refused.status, 1);
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root(), "--check-config", "--try-ldap"});
  EXPECT_EQ(run.status, 1);
}

}  // namespace
}  // namespace paddock::testing
