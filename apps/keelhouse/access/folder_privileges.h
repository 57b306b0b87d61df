// The privileges part of a folder's settings.
#pragma once

#include <optional>
#include <string>

#include "base/value.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// All four digits of a mode, and ids that have no name, by way of the plug-in paddock_files: what a
// folder's settings have no place for.
struct ModeAndIds {
  std::string mode;  // four octal digits
  std::string uid;
  std::string gid;
};

// Throws Failure for a path that does not exist, and when the daemon cannot determine it.
ModeAndIds readMode(const Session& session, const std::string& path);

// The same; absent when it cannot be determined.
std::optional<ModeAndIds> readModeIfPossible(const Session& session, const std::string& path);

// Sets a folder's set-id and sticky bits, one octal digit, and gives what there is then. Throws
// Failure.
ModeAndIds setModeBits(const Session& session, const std::string& path, const std::string& bits);

// The file-privileges dictionary of the path. Throws Failure when the daemon's reply has none, and
// when its POSIX part says why it could not be read.
Dictionary readPrivileges(const Session& session, const std::string& path);
// The same of a reply that was read already.
Dictionary privilegesIn(const Dictionary& reply, const std::string& path);

// Writes `privileges` and gives the dictionary as it was read back. Throws Failure with a status.
Dictionary writePrivileges(const Session& session, const std::string& path, Dictionary privileges,
                           const std::string& action);

// The ACL's entries. Throws Failure when it could not be read.
const Array& aclOf(const Dictionary& privileges, const std::string& path);

// Whether the path is a folder.
bool isFolder(const Dictionary& privileges);

}  // namespace paddock::keelhouse
