// A folder's privileges and its share point: read together, and as one text for the entity tag of
// the state. Callers hold the settings lock.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Puts the folder's "fileAccessPrivs" and "sharePointRecord" into `settings`. The first step that
// fails is the status, and the share point is then an empty dictionary. Propagates exceptions of
// reading a share point.
Status readPrivilegesAndSharePoint(const std::string& path, Dictionary& settings);

// The parts of a folder's state that are not in the settings: the set-id and sticky bits of its
// mode, whether it has a list and whether that is complete, and all attributes of the share point's
// record. To be read before the settings, so that after a change in between the tag of the two
// matches no state. Never throws for unreadable parts.
Dictionary readUnlistedState(const std::string& path);

// A text that is the same for two states of a folder exactly when its privileges and its share
// point are: owner, group, mode and type, the entries of its ACL in their order, every property of
// the share point, its export among them, and what is `unlisted`. Excluded is what is no part of
// them and changes by itself: the path, and the name and kind by which an entry's user or group is
// known. Unreadable parts count with their reported error.
std::string folderState(const Dictionary& settings, const Dictionary& unlisted);

// Whether the path exists or is shared.
bool hasFolder(const Dictionary& settings);

}  // namespace paddock
