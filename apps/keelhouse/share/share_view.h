// Share points for people.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock::keelhouse {

// Whether a share point has no path, or none that is absolute: what was left of one that was never
// finished, which shares nothing.
bool isUnfinished(const Dictionary& sharePoint);

// A table of share points, and below it the records of those that are unfinished: path, name, the
// name over each protocol ("-" where it is not published) and the NFS clients; where clients
// automount a folder, one is for backups, or one is not there
// ("folder"), a column about that.
std::string formatShareTable(const Array& sharePoints);

// One share point, a line "property: value" for each property that it has.
std::string formatSharePoint(const Dictionary& sharePoint);

}  // namespace paddock::keelhouse
