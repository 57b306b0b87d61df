// The plug-in's operations on directory nodes.
#pragma once

#include "base/value.h"
#include "platform/clock.h"
#include "platform/directory.h"

namespace paddock::nodes {

// "nodes": every node of the search path, in its order, each with its "path"; "state": "writable",
// "readable", or "unreachable" with what kept it from answering under "error"; "milliseconds":
// how long opening it and looking one user up took, or failing to. All nodes are asked at once, so
// that one which does not answer keeps the others waiting once. "status" is 0, or an errno when
// there is no search path to read, which then has its text under "error".
Dictionary list(DirectoryService& directory, Clock& clock);

}  // namespace paddock::nodes
