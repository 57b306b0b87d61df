#include "configuration/configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/temporary_folder.h"

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ConfigurationReading : public testing::Test {
 protected:
  // What is wrong with the text, as "LINE: TEXT".
  static std::vector<std::string> problemsOf(const std::string& text) {
    std::vector<ConfigurationProblem> problems;
    parseConfiguration(text, problems);
    std::vector<std::string> lines;
    lines.reserve(problems.size());
    for (const auto& problem : problems) {
      lines.push_back(std::to_string(problem.line) + ": " + problem.text);
    }
    return lines;
  }
  static Configuration good(const std::string& text) {
    std::vector<ConfigurationProblem> problems;
    Configuration configuration = parseConfiguration(text, problems);
    EXPECT_THAT(problems, IsEmpty()) << problems.front().text;
    return configuration;
  }
};

constexpr const char* kEverything = R"(
[access]
admin_group = "wheel"
view_group = "audience"
[audit]
required = true
[limits]
body_bytes = 1000
reading_body_bytes = 100
body_values = 300
memory_bytes = 2000000
connections = 10
connections_per_user = 5
idle_seconds = 7
program_seconds = 9
[acl]
attribute = "user.acl"
projection = false
winbind = false
[propagation]
leave_links = true
[volumes]
quota_backend = "accounting"
quota_checker = "/usr/libexec/quotascan"
ufs_family = ["ext4", "btrfs"]
[vsp]
state = "unit:vsp.service"
sync_command = ["/usr/bin/vsp", "--sync"]
[nfs]
update_command = ["/usr/sbin/exportfs", "-ra"]
[dnssd]
enabled = false
[indexing]
command = ["/usr/bin/setpriv", "", "tell"]
[accounts]
extrausers = true
[[ldap]]
name = "office"
uri = "ldap://localhost"
base = "dc=example"
tls = "starttls"
timeout = 5
[[ldap]]
name = "plant"
uri = "ldaps://localhost"
base = ""
)";

TEST_F(ConfigurationReading, NothingSetGivesTheDefaults) {
  const Configuration configuration = good("");
  EXPECT_TRUE(configuration.tree.empty());
  EXPECT_EQ(configuration.adminGroup, "paddock");
  EXPECT_EQ(configuration.viewGroup, "paddock-view");
  EXPECT_FALSE(configuration.auditRequired);
  EXPECT_EQ(configuration.bodyBytes, 16777216U);
  EXPECT_EQ(configuration.readingBodyBytes, 65536U);
  EXPECT_EQ(configuration.bodyValues, 500000U);
  EXPECT_EQ(configuration.memoryBytes, 268435456U);
  EXPECT_EQ(configuration.connections, 512U);
  EXPECT_EQ(configuration.connectionsPerUser, 256U);
  EXPECT_EQ(configuration.idleSeconds, 30U);
  EXPECT_EQ(configuration.programSeconds, 60U);
}

TEST_F(ConfigurationReading, EveryKeyIsRead) {
  const Configuration configuration = good(kEverything);
  EXPECT_EQ(configuration.adminGroup, "wheel");
  EXPECT_EQ(configuration.viewGroup, "audience");
  EXPECT_TRUE(configuration.auditRequired);
  EXPECT_EQ(configuration.bodyBytes, 1000U);
  EXPECT_EQ(configuration.readingBodyBytes, 100U);
  EXPECT_EQ(configuration.bodyValues, 300U);
  EXPECT_EQ(configuration.memoryBytes, 2000000U);
  EXPECT_EQ(configuration.connections, 10U);
  EXPECT_EQ(configuration.connectionsPerUser, 5U);
  EXPECT_EQ(configuration.idleSeconds, 7U);
  EXPECT_EQ(configuration.programSeconds, 9U);
  const Dictionary& tree = configuration.tree;
  EXPECT_EQ(tree.size(), 12U);
  EXPECT_EQ(*tree.dictionary("acl"),
            (Dictionary{{"attribute", "user.acl"}, {"projection", false}, {"winbind", false}}));
  EXPECT_EQ(*tree.dictionary("propagation"), (Dictionary{{"leave_links", true}}));
  EXPECT_EQ(*tree.dictionary("volumes")->array("ufs_family"), (Array{"ext4", "btrfs"}));
  EXPECT_EQ(*tree.dictionary("nfs"),
            (Dictionary{{"update_command", Array{"/usr/sbin/exportfs", "-ra"}}}));
  EXPECT_EQ(*tree.dictionary("indexing"),
            (Dictionary{{"command", Array{"/usr/bin/setpriv", "", "tell"}}}));
  const Array& nodes = *tree.array("ldap");
  ASSERT_EQ(nodes.size(), 2U);
  EXPECT_EQ(nodes[0].dictionary()->integer("timeout"), 5);
  EXPECT_EQ(*nodes[1].dictionary()->string("name"), "plant");
}

TEST_F(ConfigurationReading, ExtrausersIsABooleanOrAPath) {
  EXPECT_EQ(good("[accounts]\nextrausers = \"/var/lib/extrausers\"")
                .tree.dictionary("accounts")
                ->find("extrausers")
                ->string()
                ->front(),
            '/');
  EXPECT_THAT(problemsOf("[accounts]\nextrausers = 1"),
              ElementsAre("2: \"accounts.extrausers\" must be true, false or a path"));
  EXPECT_THAT(problemsOf("[accounts]\nextrausers = \"x\""),
              ElementsAre("2: \"accounts.extrausers\" must be an absolute path"));
}

TEST_F(ConfigurationReading, DirectoryServerProblemsAreReported) {
  const std::string whole = "[[ldap]]\nname = \"a\"\nbase = \"\"\nuri = \"ldap://x\"\n";
  EXPECT_THAT(problemsOf("[[ldap]]\nname = \"a\"\nbase = \"\"\nuri = \"ldap://a http://b\"\n"),
              ElementsAre(HasSubstr("4: \"ldap.uri\" must begin with \"ldap://\"")));
  EXPECT_THAT(problemsOf("[[ldap]]\nname = \"a\"\nbase = \"\"\nuri = \" \"\n"),
              ElementsAre("4: \"ldap.uri\" must not be empty"));
  EXPECT_THAT(problemsOf(whole + "tls = \"yes\"\n"),
              ElementsAre("5: \"ldap.tls\" must be \"none\", \"starttls\" or \"ldaps\""));
  EXPECT_THAT(problemsOf(whole + "ca_file = \"ca.pem\"\npassword_file = \"\"\n"),
              ElementsAre("5: \"ldap.ca_file\" must be an absolute path",
                          "6: \"ldap.password_file\" must be an absolute path"));
  for (const char* wrong : {"user_name = \"\"", "user_name = \"uid)(x=*\"", "guid = \"a b\"",
                            "group_classes = [\"a\", \"b*\"]", "member_of = \"-x\""})
    EXPECT_THAT(problemsOf(whole + wrong),
                ElementsAre(HasSubstr("must be the name of an LDAP attribute or object class")))
        << wrong;
  for (const char* right :
       {"user_name = \"sAMAccountName\"", "guid = \"1.3.6.1.1.16.4\"", "member_of = \"\"",
        "group_classes = [\"groupOfNames\"]", "tls = \"none\"", "records_base = \"ou=paddock\"",
        "deadline = 3600", "answer_bytes = 1048576"})
    EXPECT_THAT(problemsOf(whole + right), IsEmpty()) << right;
}

TEST_F(ConfigurationReading, BoundsOfADirectoryServerHaveBounds) {
  const std::string whole = "[[ldap]]\nname = \"a\"\nbase = \"\"\nuri = \"ldap://x\"\n";
  EXPECT_THAT(problemsOf(whole + "deadline = 0\nanswer_bytes = 1048575\n"),
              ElementsAre("5: \"ldap.deadline\" must be from 1 to 3600",
                          "6: \"ldap.answer_bytes\" must be from 1048576 to 17179869184"));
}

TEST_F(ConfigurationReading, LdapsWithCleartextServerIsContradiction) {
  const auto with = [](const std::string& uri, const std::string& tls) {
    return problemsOf("[[ldap]]\nname = \"a\"\nbase = \"\"\nuri = \"" + uri + "\"\n" + tls);
  };
  constexpr const char* kLdaps = "tls = \"ldaps\"\n";
  EXPECT_THAT(with("ldaps://a ldap://b:3 ldap://c", kLdaps),
              ElementsAre("1: \"ldap.tls\" is \"ldaps\" and \"ldap.uri\" has \"ldap://b:3\": write "
                          "\"ldaps://b:3\" there, or tls = \"starttls\""));
  for (const char* uri : {"ldaps://a", "ldapi://%2Fs ldaps://a", "ldaps://a  ldapi://%2Fs"}) {
    EXPECT_THAT(with(uri, kLdaps), IsEmpty()) << uri;
    EXPECT_THAT(with(uri, ""), IsEmpty()) << uri;
  }
  EXPECT_THAT(with("ldap://a ldaps://b", ""), IsEmpty());
}

TEST_F(ConfigurationReading, UnknownKeysAreNamedWithTheirLine) {
  EXPECT_THAT(problemsOf("top = 1\n\n[access]\nadmin_grup = \"x\"\n\n[other]\na = 1\n"),
              ElementsAre("1: unknown key \"top\"", "4: unknown key \"access.admin_grup\"",
                          "6: unknown key \"other\""));
  EXPECT_THAT(problemsOf("access.group = \"x\""), ElementsAre("1: unknown key \"access.group\""));
}

TEST_F(ConfigurationReading, WrongTypesAreNamedWithTheirLine) {
  EXPECT_THAT(problemsOf("[access]\nadmin_group = 1\n[limits]\nconnections = \"many\"\n"
                         "[acl]\nprojection = \"yes\"\n[volumes]\nufs_family = \"ext4\"\n"
                         "[vsp]\nsync_command = [\"a\",\n 1]\n[limits.body_bytes]\n"),
              ElementsAre("2: \"access.admin_group\" must be a string",
                          "4: \"limits.connections\" must be an integer",
                          "6: \"acl.projection\" must be true or false",
                          "8: \"volumes.ufs_family\" must be an array of strings",
                          "11: \"vsp.sync_command\" must be an array of strings",
                          "12: \"limits.body_bytes\" must be an integer"));
  EXPECT_THAT(problemsOf("access = 1"), ElementsAre("1: \"access\" must be a table, [access]"));
  EXPECT_THAT(problemsOf("[limits]\nconnections = 1.5"),
              ElementsAre("2: \"limits.connections\" must be an integer"));
}

TEST_F(ConfigurationReading, CommandMustBeginWithAbsolutePath) {
  EXPECT_THAT(problemsOf("[vsp]\nsync_command = [\"vsp\"]\n[nfs]\nupdate_command = [\"\", \"/x\"]\n"
                         "[indexing]\ncommand = [\n\"bin/tell\"]\n"),
              ElementsAre("2: \"vsp.sync_command\" must begin with an absolute path",
                          "4: \"nfs.update_command\" must begin with an absolute path",
                          "6: \"indexing.command\" must begin with an absolute path"));
  EXPECT_THAT(problemsOf("[indexing]\ncommand = []\n"), IsEmpty());
}

TEST_F(ConfigurationReading, OutOfRangeValuesAreNamedWithLine) {
  EXPECT_THAT(problemsOf("[limits]\nconnections = 0\nconnections_per_user = 100000\n"
                         "body_bytes = -1\n"),
              ElementsAre("2: \"limits.connections\" must be from 1 to 4096",
                          "3: \"limits.connections_per_user\" must be from 1 to 4096",
                          "4: \"limits.body_bytes\" must be from 1 to 1073741824"));
  EXPECT_THAT(problemsOf("[volumes]\nquota_backend = \"none\"\nquota_checker = \"quotascan\"\n"),
              ElementsAre("2: \"volumes.quota_backend\" must be \"kernel\" or \"accounting\"",
                          "3: \"volumes.quota_checker\" must be an absolute path"));
  for (const char* state : {"", "unit:", "pidfile:relative", "Running"}) {
    EXPECT_THAT(problemsOf(std::string("[vsp]\nstate = \"") + state + "\""),
                ElementsAre(HasSubstr("2: \"vsp.state\" must be ")))
        << state;
  }
  for (const char* state : {"running", "stopped", "unit:a", "pidfile:/run/a"}) {
    good(std::string("[vsp]\nstate = \"") + state + "\"");
  }
  for (const char* name : {"NTACL", "security.", "system.posix_acl_access", "other.NTACL"})
    EXPECT_THAT(problemsOf("[acl]\nattribute = \"" + std::string(name) + "\""),
                ElementsAre(HasSubstr("2: \"acl.attr")))
        << name;
  EXPECT_THAT(problemsOf("[access]\nadmin_group = \"\""),
              ElementsAre("2: \"access.admin_group\" must not be empty"));
  EXPECT_THAT(problemsOf("[access]\nadmin_group = \"a\\u0000b\""),
              ElementsAre("2: \"access.admin_group\" must not hold a NUL"));
}

TEST_F(ConfigurationReading, DirectoryNodesAreCheckedOneByOne) {
  EXPECT_THAT(problemsOf("[[ldap]]\nname = \"a\"\nuri = \"ldap://x\"\n"),
              ElementsAre("1: [[ldap]] has no \"base\""));
  EXPECT_THAT(problemsOf("[ldap]\nname = \"a\"\n"),
              ElementsAre("1: \"ldap\" must be an array of tables, [[ldap]]"));
  EXPECT_THAT(
      problemsOf(
          "[[ldap]]\nname = \"a\"\nuri = \"ldap://u\"\nbase = \"b\"\n"
          "[[ldap]]\nname = \"a\"\nuri = \"ldap://u\"\nbase = \"b\"\ntimeout = 0\nport = 3\n"),
      ElementsAre("5: another [[ldap]] has the name \"a\"",
                  "9: \"ldap.timeout\" must be from 1 to 3600", "10: unknown key \"ldap.port\""));
  EXPECT_THAT(problemsOf("[[ldap]]\nname = \"a/b\"\nuri = \"ldap://u\"\nbase = \"b\"\n"),
              ElementsAre("2: \"ldap.name\" must be a name without a slash"));
}

TEST_F(ConfigurationReading, MalformedTextIsNamedWithItsLine) {
  EXPECT_THAT(problemsOf("[access]\nadmin_group = \n"), ElementsAre(HasSubstr("2: ")));
  EXPECT_THAT(problemsOf("[access]\n[access]\n"), ElementsAre(HasSubstr("2: ")));
  EXPECT_THAT(problemsOf("\xff\xfe"), ElementsAre(HasSubstr("1: ")));
}

TEST_F(ConfigurationReading, AMissingFileIsAnEmptyConfiguration) {
  std::vector<ConfigurationProblem> problems;
  EXPECT_TRUE(readConfiguration("/no/such/file.toml", problems).tree.empty());
  EXPECT_THAT(problems, IsEmpty());
}

TEST_F(ConfigurationReading, UnreadableFileIsReportedAsProblem) {
  const TestFolder folder;
  std::vector<ConfigurationProblem> problems;
  readConfiguration(folder.path(), problems);
  ASSERT_EQ(problems.size(), 1U);
  EXPECT_THAT(describeProblem("FILE", problems[0]), HasSubstr("FILE: "));
}

TEST_F(ConfigurationReading, ProblemsAreDescribedWithFileAndLine) {
  EXPECT_EQ(describeProblem("/etc/x.toml", {7, "bad"}), "/etc/x.toml:7: bad");
  EXPECT_EQ(describeProblem("/etc/x.toml", {0, "bad"}), "/etc/x.toml: bad");
}

TEST_F(ConfigurationReading, InstalledConfigurationIsReadBelowRoot) {
  const TestFolder root;
  EXPECT_TRUE(readInstalledConfiguration(root.path()).empty());
  std::filesystem::create_directories(root.path("etc/paddock"));
  writeWholeFile(root.path("etc/paddock/paddockd.toml"), "[acl]\nattribute = \"user.x\"\n");
  const Dictionary tree = readInstalledConfiguration(root.path());
  EXPECT_EQ(*tree.dictionary("acl")->string("attribute"), "user.x");
  writeWholeFile(root.path("etc/paddock/paddockd.toml"), "[acl]\nattribut = \"user.x\"\n");
  try {
    readInstalledConfiguration(root.path());
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), testing::StartsWith(root.path("etc/paddock/paddockd.toml:2: ")));
  }
}

}  // namespace
}  // namespace paddock
