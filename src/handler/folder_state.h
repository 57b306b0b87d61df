// A folder's privileges and its share point: read together, and as one text for the tag by which a
// client names the state that it has seen. Callers hold the settings lock.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Puts the folder's "fileAccessPrivs" and "sharePointRecord" into `settings`. The first step that
// fails is the status, and the share point is then an empty dictionary. Throws what reading a share
// point throws.
Status readPrivilegesAndSharePoint(const std::string& path, Dictionary& settings);

// What is part of a folder's state and of no settings: the set-id and sticky bits of its mode,
// whether it has a list and whether that is complete, and all attributes of the share point's
// record. To be read before the settings, so that of a change in between the tag of the two is that
// of no state. Never throws for what cannot be read.
Dictionary readUnlistedState(const std::string& path);

// A text that is the same for two states of a folder exactly when its privileges and its share
// point are: owner, group, mode and type, the entries of its ACL in their order, every property
// of the share point, its export among them, and what is `unlisted`. Left out is what is no part of
// them and changes by itself: the path, and by what name and kind an entry's user or group is
// known. What could not be read counts with the reason that is told for it.
std::string folderState(const Dictionary& settings, const Dictionary& unlisted);

// Whether something is at the path, or it is shared.
bool hasFolder(const Dictionary& settings);

}  // namespace paddock
