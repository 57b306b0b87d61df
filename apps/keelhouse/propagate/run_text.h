// The progress and the result of a run, for people. Everything is printable.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "keelhouse/propagate/run_status.h"

namespace paddock::keelhouse {

// "1 object", "20 objects".
std::string objectsText(std::uint64_t count);

// "9 s", "3 min 05 s", "2 h 07 min".
std::string durationText(std::uint64_t seconds);

// "450000 of 1000000 objects (45%), 21300/s, 26 s left, 3 errors"; `rate` is objects per second,
// absent when it is not known yet.
std::string progressText(const RunStatus& run, std::optional<double> rate);

// The same behind a bar of what is done, in at most `columns` columns.
std::string progressBar(const RunStatus& run, std::optional<double> rate, std::size_t columns);

// A line with the counts of a run that has ended.
std::string resultText(const std::string& path, const RunStatus& run);

// The first objects on which something failed, each on a line of its own behind two blanks.
std::string errorLines(const RunStatus& run);

// A table of the first objects that a run would change.
std::string exampleTable(const RunStatus& run);

}  // namespace paddock::keelhouse
