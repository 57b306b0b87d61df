// What every program of ours that asks directory servers does first.
#pragma once

#include <cstdlib>

namespace paddock {

// Keeps libldap from reading ldap.conf, the files "ldaprc" of the current and the home folder, and
// the environment, any of which may switch the checks of certificates off: the configuration alone
// says how a server is reached. Before the first thread and the first call of the library.
inline void ignoreLdapFiles() { (void)::setenv("LDAPNOINIT", "1", 1); }

}  // namespace paddock
