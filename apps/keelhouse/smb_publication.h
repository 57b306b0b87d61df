// Whether a share point is among those that Samba serves.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// The file that synchronize-shares(8) writes in the tree of the daemon that listens on
// `socketPath`; empty when the socket is not at its place in a tree.
std::string publishedSharesOf(const std::string& socketPath);

// Whether the file has the share point under its name over SMB: Samba cannot carry every name, and
// knows one share of each. Absent when the share point has no name there, or the file cannot be
// read.
std::optional<bool> isPublishedOverSmb(const std::string& file, const Dictionary& sharePoint);

}  // namespace paddock::keelhouse
