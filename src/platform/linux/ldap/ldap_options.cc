#include "platform/linux/ldap/ldap_options.h"

#include "platform/linux/ldap/ldap_uris.h"

namespace paddock {

namespace {

void take(const Dictionary& table, const char* key, std::string& text) {
  if (const std::string* set = table.string(key)) text = *set;
}

void takePath(const Dictionary& table, const char* key, const std::string& root,
              std::string& path) {
  if (const std::string* set = table.string(key)) path = root + *set;
}

void take(const Dictionary& table, const char* key, std::vector<std::string>& texts) {
  const Array* set = table.array(key);
  if (set == nullptr || set->empty()) return;
  texts.clear();
  for (const Value& text : *set)
    if (text.string() != nullptr) texts.push_back(*text.string());
}

// Without a word about it, nothing goes over a network in the clear. A socket of this host needs no
// TLS, and beside it ldaps:// is ldaps:// all the same.
LdapTls tlsOf(const Dictionary& table, const std::string& uris) {
  if (const std::string* set = table.string("tls")) {
    if (*set == "ldaps") return LdapTls::ldaps;
    return *set == "none" ? LdapTls::none : LdapTls::startTls;
  }
  if (hasUriOfScheme(uris, "ldap")) return LdapTls::startTls;
  return hasUriOfScheme(uris, "ldaps") ? LdapTls::ldaps : LdapTls::none;
}

LdapAccountNames accountNames(const Dictionary& table) {
  LdapAccountNames names;
  take(table, "user_classes", names.userClasses);
  take(table, "user_name", names.userName);
  take(table, "user_id", names.userId);
  take(table, "user_group_id", names.userGroupId);
  take(table, "user_real_name", names.userRealName);
  take(table, "user_home", names.userHome);
  take(table, "user_shell", names.userShell);
  take(table, "group_classes", names.groupClasses);
  take(table, "group_name", names.groupName);
  take(table, "group_id", names.groupId);
  take(table, "member_names", names.memberNames);
  take(table, "member_entries", names.memberEntries);
  take(table, "member_of", names.memberOf);
  take(table, "guid", names.guid);
  return names;
}

LdapOptions optionsOf(const Dictionary& table, const std::string& root) {
  LdapOptions options;
  take(table, "name", options.name);
  take(table, "uri", options.uri);
  take(table, "base", options.base);
  take(table, "records_base", options.recordsBase);
  options.tls = tlsOf(table, options.uri);
  takePath(table, "ca_file", root, options.caFile);
  if (const auto seconds = table.integer("timeout"))
    options.timeout = std::chrono::seconds(*seconds);
  if (const auto seconds = table.integer("deadline"))
    options.deadline = std::chrono::seconds(*seconds);
  if (const auto bytes = table.integer("answer_bytes"))
    options.answerBytes = static_cast<std::size_t>(*bytes);
  take(table, "bind_dn", options.bindDn);
  takePath(table, "password_file", root, options.passwordFile);
  options.writable = table.boolean("writable");
  options.accounts = accountNames(table);
  return options;
}

}  // namespace

std::vector<LdapOptions> configuredLdap(const Dictionary& configuration, const std::string& root) {
  std::vector<LdapOptions> all;
  const Array* tables = configuration.array("ldap");
  if (tables == nullptr) return all;
  for (const Value& table : *tables)
    if (table.dictionary() != nullptr) all.push_back(optionsOf(*table.dictionary(), root));
  return all;
}

}  // namespace paddock
