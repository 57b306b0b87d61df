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

// A text that is the same for two states of a folder exactly when its privileges and its share
// point are: owner, group, mode and type, the entries of its ACL in their order, and every property
// of the share point, its export among them. Left out is what is no part of them and changes by
// itself: the path, and by what name and kind an entry's user or group is known. What could not be
// read counts with the reason that is told for it.
std::string folderState(const Dictionary& settings);

// Whether something is at the path, or it is shared.
bool hasFolder(const Dictionary& settings);

}  // namespace paddock
