#include "platform/linux/ldap/ldap_options.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

LdapOptions optionsOf(const Dictionary& table, const std::string& root = "") {
  return configuredLdap(Dictionary{{"ldap", Array{table}}}, root).at(0);
}

TEST(ConfiguredLdap, ServersKeepTheirOrder) {
  const auto servers = configuredLdap(
      Dictionary{{"ldap", Array{Dictionary{{"name", "b"}}, Dictionary{{"name", "a"}}}}}, "");
  ASSERT_EQ(servers.size(), 2U);
  EXPECT_EQ(servers[0].path(), "/LDAP/b");
  EXPECT_EQ(servers[1].path(), "/LDAP/a");
  EXPECT_TRUE(configuredLdap({}, "").empty());
}

TEST(ConfiguredLdap, WhatIsNotSetHasItsDefault) {
  const LdapOptions options = optionsOf({{"name", "a"}, {"base", "dc=x"}});
  EXPECT_EQ(options.timeout, std::chrono::seconds(10));
  EXPECT_EQ(options.deadline, std::chrono::seconds(30));
  EXPECT_EQ(options.answerBytes, 268'435'456U);
  EXPECT_EQ(options.baseOfRecords(), "dc=x");
  EXPECT_EQ(options.caFile, "/etc/ssl/certs/ca-certificates.crt");
  EXPECT_EQ(options.accounts.userName, "uid");
  EXPECT_EQ(options.accounts.guid, "entryUUID");
}

TEST(ConfiguredLdap, EverythingCanBeSet) {
  const LdapOptions options = optionsOf({{"name", "a"},
                                         {"uri", "ldap://h"},
                                         {"base", "dc=x"},
                                         {"records_base", "ou=p,dc=x"},
                                         {"timeout", 3},
                                         {"deadline", 4},
                                         {"answer_bytes", 5'000'000},
                                         {"bind_dn", "cn=s"},
                                         {"user_classes", Array{"person"}},
                                         {"user_name", "n"},
                                         {"user_id", "i"},
                                         {"user_group_id", "g"},
                                         {"user_real_name", "r"},
                                         {"user_home", "h"},
                                         {"user_shell", "s"},
                                         {"group_classes", Array{"a", "b"}},
                                         {"group_name", "gn"},
                                         {"group_id", "gi"},
                                         {"member_names", "mn"},
                                         {"member_entries", "me"},
                                         {"member_of", "mo"},
                                         {"guid", "gu"}});
  EXPECT_EQ(options.uri, "ldap://h");
  EXPECT_EQ(options.base, "dc=x");
  EXPECT_EQ(options.baseOfRecords(), "ou=p,dc=x");
  EXPECT_EQ(options.timeout, std::chrono::seconds(3));
  EXPECT_EQ(options.deadline, std::chrono::seconds(4));
  EXPECT_EQ(options.answerBytes, 5'000'000U);
  EXPECT_EQ(options.bindDn, "cn=s");
  const LdapAccountNames& names = options.accounts;
  EXPECT_EQ(names.userClasses, std::vector<std::string>{"person"});
  EXPECT_EQ(names.groupClasses, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(names.userName + names.userId + names.userGroupId + names.userRealName +
                names.userHome + names.userShell,
            "nigrhs");
  EXPECT_EQ(names.groupName + names.groupId + names.memberNames + names.memberEntries +
                names.memberOf + names.guid,
            "gngimnmemogu");
}

TEST(ConfiguredLdap, NamedFilesLieBelowRoot) {
  const LdapOptions options =
      optionsOf({{"name", "a"}, {"password_file", "/etc/p"}, {"ca_file", "/etc/ca"}}, "/tree");
  EXPECT_EQ(options.passwordFile, "/tree/etc/p");
  EXPECT_EQ(options.caFile, "/tree/etc/ca");
  EXPECT_EQ(optionsOf({{"name", "a"}}, "/tree").caFile, "/etc/ssl/certs/ca-certificates.crt");
}

TEST(ConfiguredLdap, ClearTextOverNetworkRequiresExplicitSetting) {
  const auto tls = [](const char* uri) { return optionsOf({{"name", "a"}, {"uri", uri}}).tls; };
  EXPECT_EQ(tls("ldap://h"), LdapTls::startTls);
  EXPECT_EQ(tls("ldaps://h ldap://h"), LdapTls::startTls);
  EXPECT_EQ(tls("ldaps://h"), LdapTls::ldaps);
  EXPECT_EQ(tls("ldapi://%2Frun%2Fslapd ldaps://h"), LdapTls::ldaps);
  EXPECT_EQ(tls("ldaps://h ldapi://%2Frun%2Fslapd"), LdapTls::ldaps);
  EXPECT_EQ(tls("ldapi://%2Frun%2Fslapd LDAPS://h"), LdapTls::ldaps);
  EXPECT_EQ(tls("ldapi://%2Frun%2Fslapd"), LdapTls::none);
  const auto said = [](const char* word) {
    return optionsOf({{"name", "a"}, {"uri", "ldap://h"}, {"tls", word}}).tls;
  };
  EXPECT_EQ(said("none"), LdapTls::none);
  EXPECT_EQ(said("starttls"), LdapTls::startTls);
  EXPECT_EQ(said("ldaps"), LdapTls::ldaps);
}

}  // namespace
}  // namespace paddock
