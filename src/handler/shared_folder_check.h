// Whether the path of a share point still refers to the folder that was shared. Without a service
// (null) nothing is recorded or checked.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/shared_folders.h"
#include "store/share_point_record.h"

namespace paddock {

// Whether privileges at the path may be changed, and propagated from there: not when a share point
// has exactly this path and its folder is not the one that was shared, which is then logged. A
// share point whose lookup fails does not prevent changes.
bool is_folder_as_shared(SharedFolders* folders, const std::string& path);

// Scope around the writing of share points. Folders of new ones are recorded, those of others
// unless one is recorded already: a folder that has replaced it concurrently is not mistaken for
// it. Those of removed ones are deleted.
class SharedFolderNotes {
 public:
  // To be constructed before the share points are written.
  SharedFolderNotes(SharedFolders* folders, const std::vector<SharePointRecord>& sharePoints);
  // To be called after they were written.
  void take(const std::vector<SharePointRecord>& sharePoints) const;

 private:
  void takeOne(const std::string& path) const;

  SharedFolders* const folders_;
  std::set<std::string> known_;  // the paths that were shared before
};

}  // namespace paddock
