// The command line of copyprivs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/program_frame.h"

namespace paddock::copyprivs {

struct Options : frame::Asked {
  std::string folder;
  std::string statusFile;
  std::uint32_t mask = 0;  // of kSetEverything
  bool dryRun = false;
  bool leavesLinks = false;  // of other people's objects
};

// Reads `words`, the whole argument vector, as far as it can. Returns an empty text, or why it is
// invalid; `options` then holds what was read before and after the error, in particular the status
// file.
std::string readOptions(const std::vector<std::string>& words, Options& options);

extern const char* const kUsage;

}  // namespace paddock::copyprivs
