// Whether the path of a share point still means the folder that was shared. Without a service
// (null) nothing is remembered, and nothing checked.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/shared_folders.h"
#include "store/share_point_record.h"

namespace paddock {

// Whether privileges at the path may be changed, and pushed down from there: not when a share point
// has exactly this path and another folder is there than the one that was shared, which is logged
// then. A share point that cannot be looked up keeps nothing from being changed.
bool is_folder_as_shared(SharedFolders* folders, const std::string& path);

// Around the writing of share points. Folders of new ones are remembered, those of others unless
// one is known already: what came into its place meanwhile is not taken for it. Those of removed
// ones are forgotten.
class SharedFolderNotes {
 public:
  // To be made before the share points are written.
  SharedFolderNotes(SharedFolders* folders, const std::vector<SharePointRecord>& sharePoints);
  // To be called when they were.
  void take(const std::vector<SharePointRecord>& sharePoints) const;

 private:
  void takeOne(const std::string& path) const;

  SharedFolders* const folders_;
  std::set<std::string> known_;  // the paths that were shared before
};

}  // namespace paddock
