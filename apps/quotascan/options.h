// The command line of quotascan.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace paddock::quotascan {

struct Options {
  std::string volume;
  bool byHand = true;  // not started by the sharing module
  bool json = false;
  bool kernelAlone = false;  // nothing is walked, and another run not waited for
  bool help = false;
  bool version = false;
};

// `words` is the whole argument vector. The sharing module starts the program with "-u" in the
// place of its name, then the volume, and nothing else. Nothing for what cannot be used, with
// `fault` saying why.
std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault);

extern const char* const kUsage;

}  // namespace paddock::quotascan
