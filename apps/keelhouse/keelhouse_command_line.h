// The program as a function.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace paddock::keelhouse {

// Runs the program with the words behind its name; returns its exit status. What it prints is on
// `out`, why it failed on `error`.
int runKeelhouse(const std::vector<std::string>& words, std::ostream& out, std::ostream& error);

}  // namespace paddock::keelhouse
