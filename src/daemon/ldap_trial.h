// Whether the directory servers of a configuration answer.
#pragma once

#include <iosfwd>

#include "configuration/configuration.h"
#include "daemon/paths.h"

namespace paddock {

// Asks every server of `[[ldap]]` through the plug-in that keeps the directory, and writes a line
// for each: "PATH: STATE, MS ms", with what is wrong behind it when the server does not answer.
// True when all of them do, also when there is none. Changes nothing. Throws when the plug-in
// cannot be loaded or does not answer. The process has no host before and after.
bool tryLdapServers(const Configuration& configuration, const Paths& paths, std::ostream& stream);

}  // namespace paddock
