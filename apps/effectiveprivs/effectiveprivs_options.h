// The command line of effectiveprivs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "frame/program_frame.h"

namespace paddock::effectiveprivs {

struct Options : frame::Asked {
  std::string path;
  std::uint32_t uid = 0;
  bool answer = false;
  bool explain = false;
  bool who = false;  // about everybody, and no uid
  bool json = false;
};

// `words` is the whole argument vector. Absent for invalid words, with the reason in `fault`.
std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault);

extern const char* const kUsage;

}  // namespace paddock::effectiveprivs
