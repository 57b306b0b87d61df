// The command line of quotascan.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "frame/program_frame.h"

namespace paddock::quotascan {

struct Options : frame::Asked {
  std::string volume;
  bool byHand = true;  // not started by the sharing module
  bool json = false;
  bool kernelAlone = false;  // nothing is walked, and another run not waited for
};

// `words` is the whole argument vector. The sharing module starts the program with "-u" in the
// place of its name, then the volume, and nothing else. Absent for invalid words, with the reason
// in `fault`.
std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault);

extern const char* const kUsage;

}  // namespace paddock::quotascan
