// What a run says at its end.
#pragma once

#include <string>

#include "quotascan/volume_scan.h"

namespace paddock::quotascan {

// One line for a person, of what was brought up to date; empty for nothing. `volume` is its path.
std::string summaryLine(const std::string& volume, const ScanOutcome& outcome);

// {"users": {"entries": N, "slots": N, "grown": BOOLEAN, "countedBy": "walk" or "kernel"},
// "groups": the same, "objects": N}: what was not brought up to date, or not walked, is left out.
std::string summaryJson(const ScanOutcome& outcome);

// 1234567 as "1,234,567".
std::string grouped(std::uint64_t number);

}  // namespace paddock::quotascan
