#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "configuration/configuration.h"

// Each problem has a text and a line of the file, in their order; what has none is within its
// bounds.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using paddock::ConfigurationProblem;
  const std::string text(data, data + size);
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  std::vector<ConfigurationProblem> problems;
  const paddock::Configuration configuration = paddock::parseConfiguration(text, problems);
  std::size_t last = 0;
  for (const ConfigurationProblem& problem : problems) {
    if (problem.text.empty() || problem.line > lines || problem.line < last) std::abort();
    last = problem.line;
  }
  if (!problems.empty()) return 0;
  const bool isWithin = configuration.connections > 0 &&
                        configuration.connections <= paddock::kMostConnectionsConfigured &&
                        configuration.bodyBytes > 0 && configuration.idleSeconds > 0;
  if (!isWithin) std::abort();
  return 0;
}
