// The command line of effectiveprivs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace paddock::effectiveprivs {

struct Options {
  std::string path;
  std::uint32_t uid = 0;
  bool answer = false;
  bool explain = false;
  bool who = false;  // about everybody, and no uid
  bool json = false;
  bool help = false;
  bool version = false;
};

// `words` is the whole argument vector. Nothing for what cannot be used, with `fault` saying why.
std::optional<Options> readOptions(const std::vector<std::string>& words, std::string& fault);

extern const char* const kUsage;

}  // namespace paddock::effectiveprivs
