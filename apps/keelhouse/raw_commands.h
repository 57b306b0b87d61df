// `keelhouse request` and `keelhouse command`: any operation of any plug-in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// A reply as lines, one per leaf.

// "SHORTNAME:KEYPATH = VALUE" and a line feed for each leaf below the dictionary: numbers bare,
// booleans as true and false, strings and data as JSON writes them, elements by their index. The
// leaf "status" comes first, the others in the order of their keys; empty dictionaries and arrays
// have no line.
std::string formatLeaves(std::string_view shortName, const Dictionary& reply);

// Prints the reply as JSON (on one line with --json). `json` "-" reads the request from standard
// input. A failure that the reply reports shows in the exit status alone.
ExitStatus runRequest(const Session& session, const std::string& plugin,
                      const std::string& operation, const std::string& json);

// Prints the reply's leaves, or the reply as JSON with --json.
ExitStatus runCommand(const Session& session, const std::vector<std::string>& words);

}  // namespace paddock::keelhouse
