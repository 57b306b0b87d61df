// The status file of a run, read as the daemon reads it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/value.h"

namespace paddock::keelhouse {

// The dictionary in the file. Absent when there is none, or the file is not regular, not of root or
// this user, has more than one name or more than 1 MiB, or cannot be read.
std::optional<Dictionary> readStatusFile(const std::string& path);

// A run that has ended and that nobody has asked about since.
struct EndedRun {
  std::string statusFile;
  Dictionary status;
};

// The last one of the folder in the tree below `root`; absent when there is none, or only root may
// know.
std::optional<EndedRun> endedRun(const std::string& root, const std::string& path);

}  // namespace paddock::keelhouse
