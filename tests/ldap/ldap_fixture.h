// A directory server, and nodes on it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "platform/linux/ldap/ldap_node.h"
#include "support/directory_errors.h"
#include "support/ldap_faults.h"
#include "support/slapd_server.h"

namespace paddock {

inline constexpr const char* kShares = "dsRecTypeStandard:SharePoints";
inline constexpr const char* kMounts = "dsRecTypeStandard:Mounts";
inline constexpr auto kExact = MatchType::caseInsensitiveExact;

// A user of a site, with these attributes more.
inline std::string annaEntry(const std::string& more) {
  return R"(dn: uid=anna,ou=people,dc=example
objectClass: inetOrgPerson
objectClass: posixAccount
uid: anna
)" + more +
         R"(cn: Anna Arendt
sn: Arendt
uidNumber: 2001
gidNumber: 3001
homeDirectory: /home/anna
userPassword: anna's

)";
}

inline std::shared_ptr<DirectoryNode> nodeWith(const LdapOptions& options) {
  return makeLdapNode(std::make_shared<LdapServer>(options));
}

inline std::vector<std::string> namesOf(const Array& answers) {
  std::vector<std::string> names;
  for (const Value& answer : answers)
    names.push_back(*answer.dictionary()->array(schema::kRecordName)->front().string());
  return names;
}

inline std::vector<std::string> allNames(DirectoryNode& node, const std::string& type = kShares) {
  return namesOf(node.findRecordNames(kRecordsAll, {kAttributesAll}, type, kExact));
}

inline std::vector<std::string> namesWith(DirectoryNode& node, const std::string& attribute,
                                          const std::string& value,
                                          const std::string& type = kShares) {
  return namesOf(node.findRecordsOfTypes({type}, attribute, value, kExact));
}

class LdapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = whyNoSlapd();
    if (!why.empty()) GTEST_SKIP() << why;
    slapd_ = std::make_unique<SlapdServer>(slapdOptions());
    options_ = slapd_->nodeOptions();
    server_ = std::make_shared<LdapServer>(options_);
  }

  virtual SlapdOptions slapdOptions() { return {}; }

  SlapdServer& slapd() { return *slapd_; }
  LdapOptions& options() { return options_; }
  std::shared_ptr<DirectoryNode> node() { return makeLdapNode(server_); }

 private:
  std::unique_ptr<SlapdServer> slapd_;
  LdapOptions options_;
  std::shared_ptr<LdapServer> server_;
};

}  // namespace paddock
