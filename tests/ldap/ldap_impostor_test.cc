// A foreign server at the address of the site's, with a certificate of another authority, and files
// that would make libldap accept it: none of the project's programs talks to it.
#include <ldap.h>

#include "ldap/ldap_tls_fixture.h"
#include "platform/linux/ldap/ldap_options.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kBundles = "/usr/share/paddockd/bundles/";
constexpr const char* kNobody = "ldapi://%2Fnowhere%2Fsocket";

class LdapImpostor : public LdapTlsCertificates {
 protected:
  void SetUp() override {
    LdapTlsCertificates::SetUp();
    if (IsSkipped()) return;
    makeCertificate("good", "IP:127.0.0.1", false);
    SlapdOptions options;
    options.tcp = true;
    options.ldaps = true;
    options.statistics = true;
    options.certificate = path("good.pem");
    options.key = path("good.key");
    server_ = std::make_unique<SlapdServer>(options);
    server_->nodeOptions();  // writes the file with the password
  }

  std::string ldapsUri() const { return "ldaps" + server_->tcpUri().substr(4); }
  std::string log() const { return readWholeFile(server_->folder().path("log")); }
  std::string passwordFile() const { return server_->folder().path("password"); }

  // How a table of the configuration reaches it, with this authority.
  LdapOptions configured(const std::string& uris, const std::string& authority) {
    return configuredLdap(
               Dictionary{{"ldap", Array{Dictionary{{"name", "site"},
                                                    {"uri", uris},
                                                    {"base", SlapdServer::kBase},
                                                    {"records_base", SlapdServer::kRecords},
                                                    {"ca_file", path(authority + ".pem")},
                                                    {"bind_dn", SlapdServer::kService},
                                                    {"password_file", passwordFile()}}}}},
               "")
        .at(0);
  }

 private:
  std::unique_ptr<SlapdServer> server_;
};

TEST_F(LdapImpostor, LdapsBesideSocketUsesConfiguredAuthority) {
  for (const std::string& uris :
       {kNobody + (" " + ldapsUri()), ldapsUri() + " " + kNobody, ldapsUri()}) {
    EXPECT_EQ(look(configured(uris, "ca")), 0) << uris;
    EXPECT_EQ(look(configured(uris, "other")), EKEYREJECTED) << uris;
  }
}

TEST_F(LdapImpostor, ProcessWideLibraryOptionsAreIgnored) {
  const int never = LDAP_OPT_X_TLS_NEVER;
  const int demand = LDAP_OPT_X_TLS_DEMAND;
  std::filesystem::create_directory(path("authorities"));
  std::filesystem::copy_file(path("ca.pem"), path("authorities/ca.pem"));
  ASSERT_EQ(ldap_set_option(nullptr, LDAP_OPT_X_TLS_REQUIRE_CERT, &never), LDAP_OPT_SUCCESS);
  ASSERT_EQ(ldap_set_option(nullptr, LDAP_OPT_X_TLS_CACERTDIR, path("authorities").c_str()),
            LDAP_OPT_SUCCESS);
  for (const std::string& uris : {kNobody + (" " + ldapsUri()), ldapsUri()})
    EXPECT_EQ(look(configured(uris, "other")), EKEYREJECTED) << uris;
  ldap_set_option(nullptr, LDAP_OPT_X_TLS_REQUIRE_CERT, &demand);
  ldap_set_option(nullptr, LDAP_OPT_X_TLS_CACERTDIR, "");
  EXPECT_THAT(log(), Not(HasSubstr("BIND dn=\"cn=service")));
}

// A tree in which a program is installed, and a folder with files that switch the checks off.
class LdapImpostorOfPrograms : public LdapImpostor {
 protected:
  void SetUp() override {
    LdapImpostor::SetUp();
    if (IsSkipped()) return;
    if (::geteuid() != 0) GTEST_SKIP() << "only root may ask in the name of the host";
    std::filesystem::create_directories(tree("/etc/paddock"));
    std::filesystem::create_directory(path("folder"));
    for (const char* name : {"folder/ldaprc", "folder/.ldaprc"})
      writeWholeFile(path(name), "TLS_REQCERT never\nTLS_CACERT " + path("ca.pem") +
                                     "\nTLS_CACERTDIR " + path("folder") + "\n");
    std::filesystem::create_directories(tree(std::string(kBundles) + kDirectory));
    std::filesystem::copy_file(std::string(PADDOCK_BUNDLES) + "/" + kDirectory + kModule,
                               tree(std::string(kBundles) + kDirectory + kModule));
  }

  static constexpr const char* kDirectory = "paddock_directory.bundle/Contents/";
  static constexpr const char* kModule = "paddock_directory.so";

  std::string tree(const std::string& below) { return path("tree") + below; }

  // Files that the configuration names are below the tree.
  void configure(const std::string& uris, const std::string& authority) {
    for (const std::string& file : {path(authority + ".pem"), passwordFile()}) {
      std::filesystem::create_directories(std::filesystem::path(tree(file)).parent_path());
      std::filesystem::copy_file(file, tree(file),
                                 std::filesystem::copy_options::overwrite_existing);
    }
    writeWholeFile(tree("/etc/paddock/paddockd.toml"),
                   "[[ldap]]\nname = \"site\"\nuri = \"" + uris + "\"\nbase = \"" +
                       SlapdServer::kBase + "\"\nca_file = \"" + path(authority + ".pem") +
                       "\"\nbind_dn = \"" + SlapdServer::kService + "\"\npassword_file = \"" +
                       passwordFile() + "\"\n");
  }

  // Runs it in the folder, which is also a home directory, with variables of the same kind.
  EndedProgram runThere(std::vector<std::string> words) {
    std::vector<std::string> all{"/usr/bin/env", "-C", path("folder"), "HOME=" + path("folder"),
                                 "LDAPTLS_REQCERT=never"};
    all.insert(all.end(), words.begin(), words.end());
    return runProgram(all);
  }

  EndedProgram tryLdap() {
    return runThere({PADDOCKD_PROGRAM, "--root", tree(""), "--check-config", "--try-ldap"});
  }
  // What it says of the current folder to a user whom only a directory server may know.
  EndedProgram askEffective() {
    const std::string program = tree(std::string(kBundles) + kSharing + "effectiveprivs");
    std::filesystem::create_directories(tree(std::string(kBundles) + kSharing));
    std::filesystem::copy_file(EFFECTIVEPRIVS_PROGRAM, program,
                               std::filesystem::copy_options::skip_existing);
    return runThere({program, "--explain", "-p", path("folder"), "-u", "71234"});
  }

  static constexpr const char* kSharing = "paddock_sharing.bundle/Contents/";
};

TEST_F(LdapImpostorOfPrograms, TheDaemonDoesNotTalkToIt) {
  for (const std::string& uris : {kNobody + (" " + ldapsUri()), ldapsUri()}) {
    configure(uris, "other");
    const EndedProgram ended = tryLdap();
    EXPECT_EQ(ended.status, 1) << ended.output << ended.error;
    EXPECT_THAT(ended.output, HasSubstr("/LDAP/site: broken, ")) << uris;
  }
  EXPECT_THAT(log(), Not(HasSubstr("BIND dn=\"cn=service")));
  configure(kNobody + (" " + ldapsUri()), "ca");
  const EndedProgram ended = tryLdap();
  EXPECT_EQ(ended.status, 0) << ended.output << ended.error;
  EXPECT_THAT(log(), HasSubstr("BIND dn=\"cn=service"));
}

TEST_F(LdapImpostorOfPrograms, EffectivePrivilegesProgramDoesNotTalkToIt) {
  configure(kNobody + (" " + ldapsUri()), "other");
  const EndedProgram ended = askEffective();
  EXPECT_THAT(ended.output + ended.error, HasSubstr("/LDAP/site"));
  EXPECT_THAT(log(), Not(HasSubstr("BIND dn=\"cn=service")));
  configure(kNobody + (" " + ldapsUri()), "ca");
  askEffective();
  EXPECT_THAT(log(), HasSubstr("BIND dn=\"cn=service"));
}

}  // namespace
}  // namespace paddock
