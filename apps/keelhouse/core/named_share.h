// Folders as people name them: by a path, or by a name of their share.
#pragma once

#include <string>

#include "base/value.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

// The absolute path of the folder or file that `typed` names. A word with a slash, "." and "..",
// and whatever is there under that name in the current folder are paths. Another word is the name
// of a share point's record or, where no record has it, its name over SMB; letter case counts only
// where two names differ by it alone. A note says so when the word is both a path and a share's
// name, or the names of two shares. Throws Failure for a name that two shares have, and for one
// that nothing has, with what is near.
std::string folderPath(const Session& session, const std::string& typed);

// The same with a list of share points that is there already, for words that are no path.
// `isThere`: whether the current folder has something of that name.
struct NamedFolder {
  std::string path;  // empty: the word is a path
  std::string note;  // what the user should know besides; may be empty
};
NamedFolder findNamedShare(const Array& sharePoints, const std::string& word,
                           const std::string& pathHere, bool isThere);

// That the folder is not shared, with the share whose path is near, and what else to do.
Failure notSharedHere(const Session& session, const std::string& path, const std::string& advice);

}  // namespace paddock::keelhouse
