// What the directory says of the share points.
#pragma once

#include <string>
#include <vector>

#include "platform/directory.h"

namespace paddock {

struct SharePointNames {
  std::string recordName;
  std::string path;  // empty when the record has none
  std::string overVsp;
  std::string overSmb;
  std::string overFtp;
  bool isSharedOverVsp = false;
  bool isBackup = false;
};

// Whether its record names no folder: it has no path, or a relative one. It shares nothing.
bool isUnfinished(const SharePointNames& share);

// The share points of the local node, in the order in which they were created. Throws
// DirectoryError when they cannot be read.
std::vector<SharePointNames> readSharePointNames(DirectoryService& directory);

// The share point with that path, case-insensitively, as share points are found; null when there is
// none.
const SharePointNames* sharePointAt(const std::vector<SharePointNames>& all,
                                    const std::string& path);

}  // namespace paddock
