// The daemon's main function.
#pragma once

#include <iosfwd>

#include "configuration/configuration.h"
#include "daemon/daemon_options.h"

namespace paddock {

// Whether the directory servers of a configuration answer.

// Queries every server of `[[ldap]]` through the plug-in that provides the directory, and writes a
// line for each: "PATH: STATE, MS ms", followed by the error when the server does not answer. True
// when all of them do, also when there is none. Changes nothing. Throws when the plug-in cannot be
// loaded or does not answer. The process has no host before and after.
bool tryLdapServers(const Configuration& configuration, const Paths& paths, std::ostream& stream);

// Runs until SIGTERM or SIGINT; SIGHUP reopens the audit log and reloads the configuration. Returns
// the exit status: 0, or 1 when the daemon could not start or (with --check-config) the
// configuration is wrong.
int runDaemon(const Options& options);

}  // namespace paddock
