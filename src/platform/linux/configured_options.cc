#include "platform/linux/configured_options.h"

#include "platform/linux/acl/winbind_sids.h"
#include "platform/linux/ldap/ldap_options.h"

namespace paddock {

LinuxDirectoryOptions configuredDirectory(const Dictionary& configuration,
                                          const std::string& root) {
  LinuxDirectoryOptions options;
  options.databasePath = root + options.databasePath;
  // A tree of its own brings its own PAM service; the system's is where the system keeps it.
  if (!root.empty()) options.pam->configurationFolder = root + "/etc/pam.d";
  const Dictionary* access = configuration.dictionary("access");
  const std::string* adminGroup = access != nullptr ? access->string("admin_group") : nullptr;
  if (adminGroup != nullptr) options.adminGroup = *adminGroup;
  options.ldap = configuredLdap(configuration, root);
  return options;
}

std::optional<ExtraUsersOptions> configuredExtraUsers(const Dictionary& configuration,
                                                      const std::string& root, Clock& clock,
                                                      Logger& logger) {
  const Dictionary* table = configuration.dictionary("accounts");
  const Value* value = table != nullptr ? table->find("extrausers") : nullptr;
  std::string folder = "/var/lib/extrausers";
  if (value != nullptr && value->string() != nullptr) {
    folder = *value->string();
  } else if (!(value != nullptr ? *value == Value(true) : root.empty())) {
    return std::nullopt;
  }
  return ExtraUsersOptions{.folder = root + folder,
                           .lockPath = root + "/var/lib/paddock/extrausers.lock",
                           .clock = &clock,
                           .logger = &logger};
}

FilePrivilegesOptions configuredPrivileges(const Dictionary& configuration,
                                           const std::string& root) {
  FilePrivilegesOptions options;
  options.databasePath = root + options.databasePath;
  options.rememberedSidsPath = root + options.rememberedSidsPath;
  const Dictionary* table = configuration.dictionary("acl");
  if (table == nullptr) return options;
  if (const std::string* attribute = table->string("attribute")) options.attribute = *attribute;
  options.projection = table->boolean("projection").value_or(options.projection);
  return options;
}

// Winbind belongs to the system, and allocates ids for SIDs that it resolves: a daemon with a root
// of its own does not use it, unless configured to.
std::unique_ptr<SidResolver> configuredSidResolver(const Dictionary& configuration,
                                                   const std::string& root,
                                                   std::shared_ptr<SambaAccountReader> samba) {
  if (!samba) samba = std::make_shared<SambaAccountReader>(root);
  const Dictionary* table = configuration.dictionary("acl");
  const auto wanted = table != nullptr ? table->boolean("winbind") : std::nullopt;
  return std::make_unique<EitherSidResolver>(
      wanted.value_or(root.empty()) ? makeWinbindResolver() : nullptr,
      std::make_unique<SambaAccountSids>(std::move(samba)));
}

}  // namespace paddock
