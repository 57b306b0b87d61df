// The directory servers of a configuration.
#pragma once

#include <string>
#include <vector>

#include "base/value.h"
#include "platform/linux/ldap/ldap_options.h"

namespace paddock {

// See configured_options.h. Files that the configuration names are below `root`; the authorities'
// certificates that are taken when it names none are the system's.
std::vector<LdapOptions> configuredLdap(const Dictionary& configuration, const std::string& root);

}  // namespace paddock
