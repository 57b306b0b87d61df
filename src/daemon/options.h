// The command line of the daemon.
#pragma once

#include <optional>
#include <string>

namespace paddock {

struct Options {
  std::optional<std::string> root;           // --root DIR
  std::optional<std::string> configuration;  // --config FILE
  bool checkConfiguration = false;           // --check-config
  bool tryLdap = false;                      // --try-ldap
  bool debug = false;                        // --debug
};

// Reads the command line. Nothing when the program is to end now with `exitStatus`: 0 after --help
// and --version, 2 for wrong usage; what there is to say has been written then.
std::optional<Options> readOptions(int count, const char* const* arguments, int& exitStatus);

}  // namespace paddock
