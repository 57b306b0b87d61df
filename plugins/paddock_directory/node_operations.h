// The plug-in's operations on directory nodes.
#pragma once

#include <cstddef>

#include "base/value.h"
#include "platform/directory.h"
#include "platform/machine_information.h"

namespace paddock::nodes {

inline constexpr std::size_t kMostPaths = 256;

// Request. "paths": the paths of the nodes to ask, at most kMostPaths; without it, all of the
// search path.
//
// Reply. "nodes": the nodes in their order, each with its "path"; "state": "writable", "readable",
// or with what was wrong under "error" the name of a NodeTrouble; "milliseconds": how long opening
// it and one user lookup took, or failing to; "basis" of a directory server: whether "state" is
// what is "configured", or what the last change of a record has shown ("accepted", "refused").
// Nodes are queried concurrently, each once, so that those that do not respond delay the reply only
// once. "status" is 0, EINVAL for "paths" that are no array, E2BIG for too many, or an errno when
// there is no search path to read; its text is then under "error". Without "paths", a node that
// cannot be used is marked for the daemon's health (paddock/unanswered_nodes.h), and one that does
// no longer.
Dictionary list(DirectoryService& directory, Clock& clock, const Dictionary& request);

// Queries the marked nodes, and clears the mark of those that respond.
void askAgain(DirectoryService& directory, Clock& clock);

}  // namespace paddock::nodes
