#include "configuration/configuration_schema.h"

#include <algorithm>
#include <array>
#include <string>

#include "configuration/configuration.h"

namespace paddock {
namespace {

constexpr std::int64_t kMaximumBody = 1LL << 30;
constexpr std::int64_t kMaximumValues = 100'000'000;
constexpr std::int64_t kMinimumMemory = 1LL << 20;
constexpr std::int64_t kMaximumMemory = 1LL << 40;
constexpr std::int64_t kLeastAnswer = 1LL << 20;
constexpr std::int64_t kMostAnswer = 1LL << 34;
constexpr std::int64_t kMaximumConnections = kMostConnectionsConfigured;

std::string_view notEmpty(std::string_view text) { return text.empty() ? "must not be empty" : ""; }

std::string_view quotaBackend(std::string_view text) {
  return text == "kernel" || text == "accounting" ? "" : R"(must be "kernel" or "accounting")";
}

std::string_view vspState(std::string_view text) {
  const auto names = [text](std::string_view kind) {
    return text.size() > kind.size() && text.substr(0, kind.size()) == kind;
  };
  return text == "running" || text == "stopped" || names("unit:") || names("pidfile:/")
             ? ""
             : R"(must be "running", "stopped", "unit:NAME" or "pidfile:PATH")";
}

std::string_view absolutePath(std::string_view text) {
  return !text.empty() && text.front() == '/' ? "" : "must be an absolute path";
}

// The kernel gives the attributes of "system." a meaning of its own.
std::string_view attributeName(std::string_view text) {
  constexpr std::size_t kLongest = 255;
  for (const std::string_view space : {"security.", "trusted.", "user."})
    if (text.size() > space.size() && text.size() <= kLongest && text.starts_with(space)) return "";
  return "must be the name of an extended attribute in \"security.\", \"trusted.\" or \"user.\"";
}

// A node is "/LDAP/NAME".
std::string_view nodeName(std::string_view text) {
  return text.empty() || text.find('/') != std::string_view::npos ? "must be a name without a slash"
                                                                  : "";
}

// What stands between blanks.
std::vector<std::string_view> wordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    if (!word.empty()) words.push_back(word);
  }
  return words;
}

// One or more, separated by blanks.
std::string_view ldapUris(std::string_view text) {
  const auto uris = wordsOf(text);
  for (const std::string_view uri : uris) {
    const bool known =
        uri.starts_with("ldap://") || uri.starts_with("ldaps://") || uri.starts_with("ldapi://");
    if (!known) return R"(must begin with "ldap://", "ldaps://" or "ldapi://")";
  }
  return uris.empty() ? "must not be empty" : "";
}

std::string_view ldapTls(std::string_view text) {
  return text == "none" || text == "starttls" || text == "ldaps"
             ? ""
             : R"(must be "none", "starttls" or "ldaps")";
}

// The name of an attribute type or object class (RFC 4512): it stands in filters as it is.
std::string_view ldapName(std::string_view text) {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  constexpr std::string_view kDigits = "0123456789";
  const bool isWord = !text.empty() && kLetters.find(text.front()) != std::string_view::npos &&
                      text.find_first_not_of(std::string(kLetters) + std::string(kDigits) + "-") ==
                          std::string_view::npos;
  const bool isNumber =
      !text.empty() && kDigits.find(text.front()) != std::string_view::npos &&
      text.find_first_not_of(std::string(kDigits) + ".") == std::string_view::npos;
  return isWord || isNumber ? "" : "must be the name of an LDAP attribute or object class";
}

std::string_view ldapNameOrNone(std::string_view text) {
  return text.empty() ? "" : ldapName(text);
}

constexpr std::array kKeys{
    ConfigurationKey{"access", "admin_group", KeyKind::text, 0, 0, notEmpty},
    ConfigurationKey{"access", "view_group", KeyKind::text, 0, 0, notEmpty},
    ConfigurationKey{"audit", "required", KeyKind::boolean},
    ConfigurationKey{"limits", "body_bytes", KeyKind::integer, 1, kMaximumBody},
    ConfigurationKey{"limits", "reading_body_bytes", KeyKind::integer, 1, kMaximumBody},
    ConfigurationKey{"limits", "body_values", KeyKind::integer, 1, kMaximumValues},
    ConfigurationKey{"limits", "memory_bytes", KeyKind::integer, kMinimumMemory, kMaximumMemory},
    ConfigurationKey{"limits", "connections", KeyKind::integer, 1, kMaximumConnections},
    ConfigurationKey{"limits", "connections_per_user", KeyKind::integer, 1, kMaximumConnections},
    ConfigurationKey{"limits", "idle_seconds", KeyKind::integer, 1, 3600},
    ConfigurationKey{"limits", "lock_seconds", KeyKind::integer, 1, 3600},
    ConfigurationKey{"limits", "program_seconds", KeyKind::integer, 1, 3600},
    ConfigurationKey{"acl", "attribute", KeyKind::text, 0, 0, attributeName},
    ConfigurationKey{"acl", "projection", KeyKind::boolean},
    ConfigurationKey{"acl", "winbind", KeyKind::boolean},
    ConfigurationKey{"propagation", "leave_links", KeyKind::boolean},
    ConfigurationKey{"volumes", "quota_backend", KeyKind::text, 0, 0, quotaBackend},
    ConfigurationKey{"volumes", "quota_checker", KeyKind::text, 0, 0, absolutePath},
    ConfigurationKey{"volumes", "ufs_family", KeyKind::textArray, 0, 0, notEmpty},
    ConfigurationKey{"vsp", "state", KeyKind::text, 0, 0, vspState},
    ConfigurationKey{"vsp", "sync_command", KeyKind::command},
    ConfigurationKey{"nfs", "update_command", KeyKind::command},
    ConfigurationKey{"dnssd", "enabled", KeyKind::boolean},
    ConfigurationKey{"indexing", "command", KeyKind::command},
    ConfigurationKey{"accounts", "extrausers", KeyKind::booleanOrPath, 0, 0, absolutePath},
    ConfigurationKey{"ldap", "name", KeyKind::text, 0, 0, nodeName, true},
    ConfigurationKey{"ldap", "uri", KeyKind::text, 0, 0, ldapUris, true},
    ConfigurationKey{"ldap", "base", KeyKind::text, 0, 0, nullptr, true},
    ConfigurationKey{"ldap", "records_base", KeyKind::text},
    ConfigurationKey{"ldap", "tls", KeyKind::text, 0, 0, ldapTls},
    ConfigurationKey{"ldap", "ca_file", KeyKind::text, 0, 0, absolutePath},
    ConfigurationKey{"ldap", "bind_dn", KeyKind::text, 0, 0, notEmpty},
    ConfigurationKey{"ldap", "password_file", KeyKind::text, 0, 0, absolutePath},
    ConfigurationKey{"ldap", "writable", KeyKind::boolean},
    ConfigurationKey{"ldap", "user_classes", KeyKind::textArray, 0, 0, ldapName},
    ConfigurationKey{"ldap", "user_name", KeyKind::text, 0, 0, ldapName},
    ConfigurationKey{"ldap", "user_id", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "user_group_id", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "user_real_name", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "user_home", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "user_shell", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "group_classes", KeyKind::textArray, 0, 0, ldapName},
    ConfigurationKey{"ldap", "group_name", KeyKind::text, 0, 0, ldapName},
    ConfigurationKey{"ldap", "group_id", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "member_names", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "member_entries", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "member_of", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "guid", KeyKind::text, 0, 0, ldapNameOrNone},
    ConfigurationKey{"ldap", "timeout", KeyKind::integer, 1, 3600},
    ConfigurationKey{"ldap", "deadline", KeyKind::integer, 1, 3600},
    ConfigurationKey{"ldap", "answer_bytes", KeyKind::integer, kLeastAnswer, kMostAnswer},
};

}  // namespace

const ConfigurationKey* findConfigurationKey(std::string_view table, std::string_view name) {
  const auto* const found =
      std::find_if(kKeys.begin(), kKeys.end(), [table, name](const ConfigurationKey& key) {
        return key.table == table && key.name == name;
      });
  return found != kKeys.end() ? found : nullptr;
}

bool isConfigurationTable(std::string_view table) {
  return std::any_of(kKeys.begin(), kKeys.end(),
                     [table](const ConfigurationKey& key) { return key.table == table; });
}

std::string contradictionIn(std::string_view table, const Dictionary& keys) {
  const std::string* tls = keys.string("tls");
  const std::string* uris = keys.string("uri");
  if (table != "ldap" || tls == nullptr || uris == nullptr || *tls != "ldaps") return {};
  constexpr std::string_view kInTheClear = "ldap://";
  for (const std::string_view uri : wordsOf(*uris)) {
    if (!uri.starts_with(kInTheClear)) continue;
    return R"("ldap.tls" is "ldaps" and "ldap.uri" has ")" + std::string(uri) +
           R"(": write "ldaps://)" + std::string(uri.substr(kInTheClear.size())) +
           R"(" there, or tls = "starttls")";
  }
  return {};
}

bool isConfigurationTableArray(std::string_view table) { return table == "ldap"; }

std::vector<std::string_view> requiredConfigurationKeys(std::string_view table) {
  std::vector<std::string_view> names;
  for (const ConfigurationKey& key : kKeys) {
    if (key.required && key.table == table) names.push_back(key.name);
  }
  return names;
}

}  // namespace paddock
