// Platform services whose calls fail as a FaultPlan says, each in its own way:
//
//   directory        throws DirectoryError (see faulty_directory.h)
//   membership       the plan's error and a GUID or id of zero
//   volumeInfo       the plan's error and nothing
//   hostName         the plan's error and an empty name
//   programRunner    the plan's error as the status of starting it; nothing runs; `exists` says
//   false pluginCommands   an empty reply; the plug-in is not asked sharedFileLists  no list, no
//   item inserted, the plan's error from a removal, an item that
//                    cannot be resolved, an empty snapshot
//   textFiles        the plan's error, nothing read, written or removed; `exists` says false
//   accounts         the plan's error and an id of zero or an empty name
//   fileAttributes   the plan's error, nothing read or applied; `exists` says false, `refusedLink`
//                    nothing
//   acl              -1 or null with the plan's error in errno (see faulty_acl.h)
//   quotaControl     the plan's error, nothing switched and the state 0
//   browserInformation  the plan's error, zeros read and nothing written
//   metadataStores   the plan's error, nothing read or written
//   netServices      a TXT record that is not taken, a service that is not published and whose
//                    delegate is told so
//   privilegedObjects  the plan's error and no object
//   statusFiles      the plan's error or no dictionary, nothing made or removed; `exists`
//                    says false
//
// The logger, the clock and the UUIDs have no way to fail and are passed on as they are.
#pragma once

#include <memory>

#include "platform/services.h"
#include "platform/testing/fault_plan.h"

namespace paddock {

class FaultyServices {
 public:
  // Wraps every service that `wrapped` has. The services and the plan outlive this object.
  FaultyServices(Services wrapped, FaultPlan& plan);
  FaultyServices(const FaultyServices&) = delete;
  FaultyServices& operator=(const FaultyServices&) = delete;
  ~FaultyServices();

  const Services& services() const { return services_; }

 private:
  struct Wrappers;
  std::unique_ptr<Wrappers> wrappers_;
  Services services_;
};

}  // namespace paddock
