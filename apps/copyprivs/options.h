// The command line of copyprivs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace paddock::copyprivs {

struct Options {
  std::string folder;
  std::string statusFile;
  std::uint32_t mask = 0;  // of kSetEverything
  bool dryRun = false;
  bool help = false;
  bool version = false;
};

// Reads `words`, the whole argument vector, as far as it can. Empty, or why it cannot be used;
// what was read before and behind the fault stands in `options` then, the status file above all.
std::string readOptions(const std::vector<std::string>& words, Options& options);

extern const char* const kUsage;

}  // namespace paddock::copyprivs
