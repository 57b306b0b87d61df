// A shared-file list that fails as a FaultPlan says. See faulty_services.h.
#pragma once

#include "platform/shared_file_list.h"
#include "platform/testing/fault_plan.h"

namespace paddock {

class FaultySharedFileLists : public SharedFileLists {
 public:
  // Both outlive this object and what it hands out.
  FaultySharedFileLists(SharedFileLists& wrapped, FaultPlan& plan)
      : wrapped_(wrapped), plan_(plan) {}

  std::unique_ptr<SharedFileList> createSharePointList() override;

 private:
  SharedFileLists& wrapped_;
  FaultPlan& plan_;
};

}  // namespace paddock
