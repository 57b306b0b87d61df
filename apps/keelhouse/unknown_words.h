// Words of the command line that the program does not know.
#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <vector>

namespace paddock::keelhouse {

// Of a command line that cannot be parsed: which command or option there is none of, and which one
// is near. Absent when each of them is known, so that something else is wrong.
std::optional<std::string> unknownWord(const CLI::App& program,
                                       const std::vector<std::string>& words);

// The help on the command that the words name; on the program without any. Throws Failure (usage)
// when there is no such command.
std::string helpOn(const CLI::App& program, const std::vector<std::string>& words);

}  // namespace paddock::keelhouse
