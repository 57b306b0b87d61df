// All four digits of a mode, and ids that have no name, by way of the plug-in paddock_files: what a
// folder's settings have no place for.
#pragma once

#include <optional>
#include <string>

#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

struct ModeAndIds {
  std::string mode;  // four octal digits
  std::string uid;
  std::string gid;
};

// Throws Failure for a path where nothing is, and when the daemon cannot tell.
ModeAndIds readMode(const Session& session, const std::string& path);

// The same; absent when it cannot be told.
std::optional<ModeAndIds> readModeIfPossible(const Session& session, const std::string& path);

// Sets a folder's set-id and sticky bits, one octal digit, and gives what there is then. Throws
// Failure.
ModeAndIds setModeBits(const Session& session, const std::string& path, const std::string& bits);

}  // namespace paddock::keelhouse
