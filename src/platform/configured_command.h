// Programs that the configuration names, as argument vectors.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "platform/program_runner.h"

namespace paddock {

// The texts of the array under `key` of the table `table`; absent when it is not set.
std::optional<std::vector<std::string>> configuredTexts(const Dictionary& configuration,
                                                        std::string_view table,
                                                        std::string_view key);

// Runs the program of an argument vector, whose first element is its path, and waits for it. The
// reply has, when something went wrong or was said, its texts beside the number:
//   "status"       its exit status, 128 + N when signal N ended it; 0 when there is no command; the
//                  errno of starting it; ETIMEDOUT when it took too long
//   "error"        why there is no exit status; absent when there is one
//   "errorOutput"  what it wrote to standard error, its first 64 KiB; absent when that is nothing
Dictionary runConfiguredCommand(ProgramRunner& runner,
                                const std::vector<std::string>& argumentVector);

}  // namespace paddock
