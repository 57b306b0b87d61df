// Process initialisation shared by all programs that query directory servers.
#pragma once

#include <cstdlib>

namespace paddock {

// Keeps libldap from reading ldap.conf, the files "ldaprc" of the current and the home folder, and
// the environment, any of which may disable certificate checks: the configuration alone determines
// how a server is reached. To be called before the first thread and the first call of the library.
inline void ignoreLdapFiles() { (void)::setenv("LDAPNOINIT", "1", 1); }

}  // namespace paddock
