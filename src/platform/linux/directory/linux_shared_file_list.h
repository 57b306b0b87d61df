// The shared-file list of a system that has none: insertions are accepted, no item is kept.
#pragma once

#include "platform/shared_file_list.h"

namespace paddock {

class LinuxSharedFileLists : public SharedFileLists {
 public:
  std::unique_ptr<SharedFileList> createSharePointList() override;
};

}  // namespace paddock
