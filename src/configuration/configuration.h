// The daemon's configuration file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"

namespace paddock {

// Upper bound of `[limits] connections`.
inline constexpr std::size_t kMostConnectionsConfigured = 4096;

struct Configuration {
  // The whole file: tables are dictionaries. What the file does not set is absent.
  Dictionary tree;

  // What the daemon itself uses, with the defaults.
  std::string adminGroup = "paddock";
  std::string viewGroup = "paddock-view";
  bool auditRequired = false;
  std::size_t bodyBytes = 16U << 20U;
  std::size_t readingBodyBytes = 64U << 10U;
  std::size_t bodyValues = 500000;
  std::size_t memoryBytes = 256U << 20U;
  std::size_t connections = 512;
  std::size_t connectionsPerUser = 256;
  unsigned idleSeconds = 30;
  unsigned programSeconds = 60;
};

struct ConfigurationProblem {
  std::size_t line = 0;  // from 1; 0 when the problem has no place in the text
  std::string text;
};

// Reads a configuration in TOML. Errors (malformed text, an unknown key, a value of the wrong type
// or out of range) are appended to `problems` in line order; the result is valid only when there
// are none.
Configuration parseConfiguration(std::string_view text,
                                 std::vector<ConfigurationProblem>& problems);

// The same for a file; a missing file is an empty configuration. One that others than root and the
// user of this process could have changed is a problem (base/trusted_path.h).
Configuration readConfiguration(const std::string& path,
                                std::vector<ConfigurationProblem>& problems);

// The configuration tree of the installation below `root` (empty for the system itself), for
// companion programs of the daemon. Throws std::runtime_error with the first problem.
Dictionary readInstalledConfiguration(const std::string& root);

// "PATH:LINE: TEXT", or "PATH: TEXT" without a line.
std::string describeProblem(const std::string& path, const ConfigurationProblem& problem);

}  // namespace paddock
