// A directory whose calls fail as a FaultPlan says: by DirectoryError, as the service does.
//
// Sessions, nodes and records that it hands out are wrapped too. Each virtual operation counts
// as one call, named after its interface: "directory.openLocal", "session.findNode",
// "node.findRecord", "record.setAttribute" ... A failing `removeRecord` removes nothing.
#pragma once

#include "platform/directory.h"
#include "platform/testing/fault_plan.h"

namespace paddock {

class FaultyDirectory : public DirectoryService {
 public:
  // Both outlive this object and what it hands out.
  FaultyDirectory(DirectoryService& wrapped, FaultPlan& plan) : wrapped_(wrapped), plan_(plan) {}

  std::unique_ptr<DirectorySession> openLocal() override;

 private:
  DirectoryService& wrapped_;
  FaultPlan& plan_;
};

}  // namespace paddock
