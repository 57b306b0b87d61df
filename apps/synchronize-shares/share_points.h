// What the directory says of the share points, as far as SMB goes.
#pragma once

#include <string>
#include <vector>

#include "platform/linux/directory/linux_directory.h"
#include "samba/smb_options.h"

namespace paddock::synchronizer {

struct SharePoint {
  std::string recordName;
  std::string path;  // empty when the record has none
  std::string nameOverSMB;
  samba::ReadOptions smb = {};
  // See passed_lists.h; no record says so.
  bool passesListsOn = false;
};

// The share points of "/Local" that have a name over SMB that is not empty, in the order in which
// they were created. Throws DirectoryError when they cannot be read: a directory that does not
// answer must not look like one without share points, or every share would end.
std::vector<SharePoint> readSharePoints(const LinuxDirectoryOptions& options);

}  // namespace paddock::synchronizer
