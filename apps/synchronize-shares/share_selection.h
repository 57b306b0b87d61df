// Which share points become shares.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/linux/directory/linux_directory.h"
#include "samba/smb_options.h"

namespace paddock::synchronizer {

// The directory's attributes of a share point that concern SMB.
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
// respond must not be mistaken for one without share points, which would end every share.
std::vector<SharePoint> readSharePoints(const LinuxDirectoryOptions& options);

struct ShareSelection {
  // Each can be written as a section, and no two have the same name to Samba. They are among the
  // share points that were selected from, and live as long.
  std::vector<const SharePoint*> published;
  // A line for each of the others, which says which and why.
  std::vector<std::string> leftOut;
};

// What Samba says of the lines of options that a share has, "" when it takes them.
using OptionsCheck = std::function<std::string(const std::string& lines)>;

// Of several share points with one name the first is published. `check` is asked about those that
// have parameters of their own; without it they are taken as they are.
ShareSelection selectShares(const std::vector<SharePoint>& sharePoints,
                            const OptionsCheck& check = nullptr);

}  // namespace paddock::synchronizer
