// Directory servers that speak TLS, with a throw-away authority.
#pragma once

#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ldap/ldap_fixture.h"
#include "support/run_to_end.h"
#include "support/temporary_folder.h"

namespace paddock {

class LdapTlsCertificates : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = whyNoSlapd();
    if (!why.empty()) GTEST_SKIP() << why;
    makeAuthority("ca");
    makeAuthority("other");
  }

  std::string path(const std::string& name) { return folder_.path(name); }

  void openssl(const std::string& words) {
    std::vector<std::string> all{"/usr/bin/openssl"};
    std::istringstream stream(words);
    for (std::string word; stream >> word;) all.push_back(word);
    const EndedProgram ended = runProgram(all);
    ASSERT_EQ(ended.status, 0) << words << "\n" << ended.error;
  }

  void makeKey(const std::string& name) {
    openssl("ecparam -name prime256v1 -genkey -noout -out " + path(name + ".key"));
  }

  void makeAuthority(const std::string& name) {
    makeKey(name);
    openssl("req -x509 -new -key " + path(name + ".key") + " -days 2 -subj /CN=" + name +
            " -addext basicConstraints=critical,CA:TRUE -out " + path(name + ".pem"));
  }

  // A certificate for the name, signed by "ca", valid from now or from long ago until yesterday.
  void makeCertificate(const std::string& name, const std::string& subjectName, bool expired) {
    makeKey(name);
    openssl("req -new -key " + path(name + ".key") + " -subj /CN=server -out " +
            path(name + ".csr"));
    writeWholeFile(path("extensions"), "subjectAltName=" + subjectName + "\n");
    std::filesystem::create_directory(path("issued"));
    writeWholeFile(path("index"), "");
    writeWholeFile(path("ca.conf"), "[ca]\ndefault_ca=c\n[c]\ndatabase=" + path("index") +
                                        "\nnew_certs_dir=" + path("issued") +
                                        "\ndefault_md=sha256\npolicy=p\nunique_subject=no\n"
                                        "rand_serial=yes\n[p]\ncommonName=supplied\n");
    openssl("ca -batch -notext -config " + path("ca.conf") + " -cert " + path("ca.pem") +
            " -keyfile " + path("ca.key") + " -in " + path(name + ".csr") + " -extfile " +
            path("extensions") + " -startdate " + "20200101000000Z" + " -enddate " +
            (expired ? "20200102000000Z" : "20991231000000Z") + " -out " + path(name + ".pem"));
  }

  std::unique_ptr<SlapdServer> serverWith(const std::string& certificate, bool ldaps = false) {
    SlapdOptions options;
    options.tcp = true;
    options.ldaps = ldaps;
    options.certificate = path(certificate + ".pem");
    options.key = path(certificate + ".key");
    return std::make_unique<SlapdServer>(options);
  }

  LdapOptions clientOf(const SlapdServer& server, const std::string& authority = "ca") {
    LdapOptions options = server.nodeOptions();
    options.uri = server.tcpUri();
    options.tls = LdapTls::startTls;
    options.caFile = path(authority + ".pem");
    options.timeout = std::chrono::seconds(20);
    return options;
  }

  static Status look(const LdapOptions& options) {
    return raised([&] { nodeWith(options)->findRecord("a", kShares); });
  }

 private:
  TestFolder folder_;
};

}  // namespace paddock
