#include "configuration/configuration_schema.h"

#include <algorithm>
#include <array>

namespace paddock {
namespace {

constexpr std::int64_t kMaximumBody = 1LL << 30;
constexpr std::int64_t kMaximumConnections = 4096;

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

constexpr std::array kKeys{
    ConfigurationKey{"access", "admin_group", KeyKind::text, 0, 0, notEmpty},
    ConfigurationKey{"access", "view_group", KeyKind::text, 0, 0, notEmpty},
    ConfigurationKey{"limits", "body_bytes", KeyKind::integer, 1, kMaximumBody},
    ConfigurationKey{"limits", "connections", KeyKind::integer, 1, kMaximumConnections},
    ConfigurationKey{"limits", "connections_per_user", KeyKind::integer, 1, kMaximumConnections},
    ConfigurationKey{"limits", "idle_seconds", KeyKind::integer, 1, 3600},
    ConfigurationKey{"limits", "program_seconds", KeyKind::integer, 1, 3600},
    ConfigurationKey{"acl", "attribute", KeyKind::text, 0, 0, attributeName},
    ConfigurationKey{"acl", "projection", KeyKind::boolean},
    ConfigurationKey{"acl", "winbind", KeyKind::boolean},
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
    ConfigurationKey{"ldap", "uri", KeyKind::text, 0, 0, notEmpty, true},
    ConfigurationKey{"ldap", "base", KeyKind::text, 0, 0, nullptr, true},
    ConfigurationKey{"ldap", "tls", KeyKind::text, 0, 0, notEmpty},
    ConfigurationKey{"ldap", "timeout", KeyKind::integer, 1, 3600},
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

bool isConfigurationTableArray(std::string_view table) { return table == "ldap"; }

std::vector<std::string_view> requiredConfigurationKeys(std::string_view table) {
  std::vector<std::string_view> names;
  for (const ConfigurationKey& key : kKeys) {
    if (key.required && key.table == table) names.push_back(key.name);
  }
  return names;
}

}  // namespace paddock
