// Read-only commands change nothing on a directory server: a new one has the same database, byte
// for byte, after each of them, and then accepts its first record.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "integration/keelhouse_fixture.h"
#include "support/slapd_server.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;

class LdapLooking : public KeelhouseTree {
 protected:
  void SetUp() override {
    KeelhouseTree::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (const std::string why = whyNoSlapd(); !why.empty()) GTEST_SKIP() << why;
    slapd_.emplace(SlapdOptions{.statistics = true});
    tree_.write("/etc/paddock/password", SlapdServer::kServicePassword);
    ASSERT_EQ(::chmod(tree_.path("/etc/paddock/password").c_str(), 0600), 0);
    tree_.configure("[[ldap]]\nname = \"site\"\nuri = \"" + slapd_->ldapiUri() + "\"\nbase = \"" +
                    SlapdServer::kBase + "\"\nrecords_base = \"" + SlapdServer::kRecords +
                    "\"\ntls = \"none\"\nbind_dn = \"" + SlapdServer::kService +
                    "\"\npassword_file = \"/etc/paddock/password\"\n");
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }

  // The file that slapd keeps everything in; what it wrote is in it at once.
  std::string database() const { return readWholeFile(slapd_->folder().path("data/data.mdb")); }

  // By what the server says that it was asked.
  void expectOnlySearches() const {
    const std::string log = readWholeFile(slapd_->folder().path("log"));
    EXPECT_THAT(log, HasSubstr("SRCH base=")) << "it was asked";
    for (const char* operation : {" ADD dn=", " MOD dn=", " MODRDN dn=", " DEL dn="}) {
      std::size_t count = 0;
      for (std::size_t at = 0; (at = log.find(operation, at)) != std::string::npos; ++at) ++count;
      // Those of the server's own entries, which were there before.
      EXPECT_EQ(count, operation == std::string(" ADD dn=") ? 5U : 0U) << operation;
    }
  }

  std::optional<SlapdServer> slapd_;
  std::optional<RunningDaemon> daemon_;
};

TEST_F(LdapLooking, ReadingCommandsLeaveDatabaseAndFirstRecordReadable) {
  const std::string folder = makeFolder("photos");
  done({"share", "add", folder});
  const std::string before = database();
  ASSERT_FALSE(before.empty());
  const std::vector<std::vector<std::string>> commands = {
      {"status"},
      {"nodes"},
      {"share", "list"},
      {"share", "show", folder},
      {"privs", "show", folder},
      {"acl", "show", folder},
      {"acl", "show", folder, "--projection"},
      {"effective", folder, "root"},
      {"who", folder},
      {"quota", "show", folder},
      {"index", "status", folder},
      {"record", "list", "users", "--node", "/LDAP/site"},
      {"record", "list", "groups", "--node", "/LDAP/site"},
      {"record", "list", "mounts", "--node", "/LDAP/site"},
      {"record", "show", "mounts", "none", "--node", "/LDAP/site"},
      {"request", "paddock_sharing", "getDSNodes", "{}"},
      {"request", "paddock_sharing", "readSettings", "{}"},
      {"request", "paddock_sharing", "getSharePointList", "{}"},
      {"request", "paddock_directory", "listNodes", "{}"},
  };
  for (const auto& words : commands) {
    // Some say that there is nothing; none may be one that there is not.
    const EndedProgram ended = keelhouse(words);
    EXPECT_NE(ended.status, 2) << words.front() << " " << words.back() << ": " << ended.error;
    EXPECT_EQ(database(), before) << words.front() << " " << words.back();
  }
  EXPECT_THAT(done({"nodes"}), HasSubstr("/LDAP/site  writable (as configured)"));
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root(), "--check-config", "--try-ldap"});
  EXPECT_EQ(run.status, 0) << run.errorOutput;
  EXPECT_EQ(database(), before) << "--try-ldap";
  expectOnlySearches();

  done({"record", "put", "mounts", "first", "VFSType=nfs", "--node", "/LDAP/site"});
  EXPECT_THAT(done({"record", "show", "mounts", "first", "--node", "/LDAP/site"}),
              HasSubstr("dsAttrTypeStandard:VFSType: nfs"));
  EXPECT_THAT(slapd_->search({"-b", SlapdServer::kRecords, "(objectClass=paddockRecord)"}),
              HasSubstr("paddockType: dsRecTypeStandard:Mounts"));
  EXPECT_THAT(done({"nodes"}), HasSubstr("/LDAP/site  writable (it took a change)"));
  EXPECT_NE(database(), before);
}

}  // namespace
}  // namespace paddock::testing
